// Pictures a second over the last two seconds.
#pragma once

#include "host/base/gxthread.h"

#include <chrono>
#include <deque>

class CRateWindow {
 public:
  using Clock = std::chrono::steady_clock;

  // Any thread; `now` never goes back.
  void Count(Clock::time_point now = Clock::now());
  double PerSecond(Clock::time_point now = Clock::now()) const;

 private:
  static constexpr std::chrono::seconds WINDOW{2};
  static constexpr size_t MOST = 4096;  // pictures remembered; a faster source shows as that many

  mutable CGXCritical m_Lock;
  std::deque<Clock::time_point> m_Times GUARDED_BY(m_Lock);
};
