#pragma once
// The motor of a PTZ camera: position over time. Pan and tilt run from -1 to 1, zoom from 0 to 1.
#include <chrono>

struct CPtzVector {
  double pan = 0, tilt = 0, zoom = 0;
};

// Not locked: the camera's lock guards it. Every operation first moves the head to where it is at `now`.
class CPtzHead {
 public:
  using Clock = std::chrono::steady_clock;

  // Turns at `speed` (fractions of full speed, -1..1 an axis) until Stop or until `timeout` is over.
  void Continuous(const CPtzVector& speed, Clock::duration timeout, Clock::time_point now);
  // Heads for `target`, cut to the ranges, at full speed.
  void MoveTo(const CPtzVector& target, Clock::time_point now);
  void Stop(bool panTilt, bool zoom, Clock::time_point now);
  CPtzVector Position(Clock::time_point now);
  // Where the head is going to be at the end of the present move (its position when it stands).
  CPtzVector Target(Clock::time_point now);
  bool MovingPanTilt(Clock::time_point now);
  bool MovingZoom(Clock::time_point now);

 private:
  void Advance(Clock::time_point now);

  CPtzVector m_position, m_target, m_speed;
  bool m_seeking = false;
  Clock::time_point m_at{}, m_until{};
};
