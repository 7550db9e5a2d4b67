// Time in tests: how long something took, and waiting for what is bound to happen.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

using Clock = std::chrono::steady_clock;

inline double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Asks again and again until it is true or the time is up.
inline bool Eventually(double seconds, const std::function<bool()>& condition) {
  for (const auto start = Clock::now(); SecondsSince(start) < seconds;) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return condition();
}
