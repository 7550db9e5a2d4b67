// The motor of a PTZ camera: position over time. Pan and tilt run from -1 to 1, zoom from 0 to 1.
#pragma once

#include <chrono>

struct CPTZVector {
  double Pan = 0, Tilt = 0, Zoom = 0;
};

// Not locked: the camera's lock guards it. Every operation first moves the head to where it is at `now`.
class CPTZHead {
 public:
  using Clock = std::chrono::steady_clock;

  // Turns at `speed` (fractions of full speed, -1..1 an axis) until Stop or until `timeout` is over.
  void Continuous(const CPTZVector& speed, Clock::duration timeout, Clock::time_point now);
  // Heads for `target`, cut to the ranges, at full speed.
  void MoveTo(const CPTZVector& target, Clock::time_point now);
  void Stop(bool panTilt, bool zoom, Clock::time_point now);
  CPTZVector Position(Clock::time_point now);
  // Where the head is going to be at the end of the present move (its position when it stands).
  CPTZVector Target(Clock::time_point now);
  bool MovingPanTilt(Clock::time_point now);
  bool MovingZoom(Clock::time_point now);

 private:
  void Advance(Clock::time_point now);

  CPTZVector m_Position, m_Target, m_Speed;
  bool m_BSeeking = false;
  Clock::time_point m_At{}, m_Until{};
};
