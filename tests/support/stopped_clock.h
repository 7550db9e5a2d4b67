// The clock that the driver's timers read, in a test's hands. One source file of a program includes this.
#pragma once

#include <sys/time.h>
#include <time.h>

#include <atomic>

inline std::atomic<long long> g_ClockStoppedAtMs{0};  // 0: it runs

// Stops it but for steps, so that nothing depends on how fast the test runs.
class CStoppedClock {
 public:
  CStoppedClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    g_ClockStoppedAtMs = now.tv_sec * 1000LL + now.tv_nsec / 1000000;
  }
  ~CStoppedClock() { g_ClockStoppedAtMs = 0; }
  CStoppedClock(const CStoppedClock&) = delete;
  CStoppedClock& operator=(const CStoppedClock&) = delete;
  void Step(long long milliseconds) { g_ClockStoppedAtMs += milliseconds; }
};

extern "C" int gettimeofday(timeval* now, void*) noexcept {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  if (const long long stopped = g_ClockStoppedAtMs; stopped != 0)
    time = {stopped / 1000, stopped % 1000 * 1000000};
  *now = {time.tv_sec, time.tv_nsec / 1000};
  return 0;
}
