// When each picture of a recording is shown.
#pragma once

#include <algorithm>
#include <cstdint>

// The time that a picture arrived, but at least one frame interval after the picture before it: the network
// delivers in bursts, and players that count in frame intervals would take two pictures for the same one.
// Microseconds.
class CPictureClock {
 public:
  static constexpr int64_t MIN_STEP = 1000;       // Matroska counts in milliseconds
  static constexpr int64_t MOST_AHEAD = 1000000;  // of the arrival: the camera is faster than it says

  // A new recording; `interval` 0: unknown.
  explicit CPictureClock(int64_t interval = 0) : m_nInterval(interval) {}

  int64_t Stamp(int64_t arrival) {
    const int64_t passed = arrival - m_nArrival;
    m_nArrival = arrival;
    if (!m_bStarted) {
      m_bStarted = true;
      return m_nLast = arrival;
    }
    const bool ahead = m_nLast - arrival > MOST_AHEAD;
    return m_nLast = std::max(arrival, m_nLast + std::max(ahead ? passed : m_nInterval, MIN_STEP));
  }

 private:
  int64_t m_nInterval, m_nArrival = 0, m_nLast = 0;
  bool m_bStarted = false;
};
