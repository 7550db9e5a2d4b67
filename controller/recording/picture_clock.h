// When each picture of a recording is shown.
#pragma once

#include <algorithm>
#include <cstdint>

// The clock of recordings, in which the usual frame intervals are whole numbers.
inline constexpr int64_t RECORDING_HZ = 90000;

// The time that a picture arrived, but at least one frame interval after the picture before it: the network
// delivers in bursts, and players that count in frame intervals would take two pictures for the same one.
class CPictureClock {
 public:
  static constexpr int64_t MIN_STEP = RECORDING_HZ / 1000;  // Matroska counts in milliseconds
  static constexpr int64_t MOST_AHEAD = RECORDING_HZ;       // of the arrival: the camera is faster than it says

  // A new recording; `interval` in units of the recording's clock, 0: unknown.
  explicit CPictureClock(int64_t interval = 0) : m_nInterval(interval) {}

  // Arrival in microseconds of any origin; the result counts from the first picture on.
  int64_t Stamp(int64_t arrival) {
    if (!m_bStarted) m_nOrigin = arrival;
    const int64_t now = (arrival - m_nOrigin) * RECORDING_HZ / 1000000;
    const int64_t passed = now - m_nArrival;
    m_nArrival = now;
    const bool ahead = m_nLast - now > MOST_AHEAD;
    if (m_bStarted) m_nLast = std::max(now, m_nLast + std::max(ahead ? passed : m_nInterval, MIN_STEP));
    m_bStarted = true;
    return m_nLast;
  }

 private:
  int64_t m_nInterval, m_nOrigin = 0, m_nArrival = 0, m_nLast = 0;
  bool m_bStarted = false;
};
