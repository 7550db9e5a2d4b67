#include "sim/ptz_head.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double FULL_SPEED = 0.5;    // units a second at speed 1
constexpr double PRESET_SPEED = 1.5;  // units a second when heading for a position

CPTZVector Clamp(const CPTZVector& v) {
  return {std::clamp(v.Pan, -1.0, 1.0), std::clamp(v.Tilt, -1.0, 1.0), std::clamp(v.Zoom, 0.0, 1.0)};
}

double Approach(double from, double to, double step) {
  return from + std::clamp(to - from, -step, step);
}

}  // namespace

void CPTZHead::Advance(Clock::time_point now) {
  if (m_At == Clock::time_point{}) m_At = now;
  const Clock::time_point end = m_BSeeking ? now : std::clamp(m_Until, m_At, std::max(m_At, now));
  const double seconds = std::chrono::duration<double>(end - m_At).count();
  m_At = std::max(m_At, now);
  if (m_BSeeking) {
    const double step = seconds * PRESET_SPEED;
    m_Position = {Approach(m_Position.Pan, m_Target.Pan, step), Approach(m_Position.Tilt, m_Target.Tilt, step),
                  Approach(m_Position.Zoom, m_Target.Zoom, step)};
    return;
  }
  const double step = seconds * FULL_SPEED;
  m_Position = Clamp({m_Position.Pan + m_Speed.Pan * step, m_Position.Tilt + m_Speed.Tilt * step,
                      m_Position.Zoom + m_Speed.Zoom * step});
  if (now >= m_Until) m_Speed = {};
}

void CPTZHead::Continuous(const CPTZVector& speed, Clock::duration timeout, Clock::time_point now) {
  Advance(now);
  m_BSeeking = false;
  m_Speed = speed;
  m_Until = now + timeout;
}

void CPTZHead::MoveTo(const CPTZVector& target, Clock::time_point now) {
  Advance(now);
  m_BSeeking = true;
  m_Speed = {};
  m_Target = Clamp(target);
}

void CPTZHead::Stop(bool panTilt, bool zoom, Clock::time_point now) {
  Advance(now);
  if (panTilt) {
    m_Speed.Pan = m_Speed.Tilt = 0;
    m_Target.Pan = m_Position.Pan;
    m_Target.Tilt = m_Position.Tilt;
  }
  if (zoom) {
    m_Speed.Zoom = 0;
    m_Target.Zoom = m_Position.Zoom;
  }
}

CPTZVector CPTZHead::Position(Clock::time_point now) {
  Advance(now);
  return m_Position;
}

CPTZVector CPTZHead::Target(Clock::time_point now) {
  Advance(now);
  return m_BSeeking ? m_Target : m_Position;
}

bool CPTZHead::MovingPanTilt(Clock::time_point now) {
  Advance(now);
  if (!m_BSeeking) return m_Speed.Pan != 0 || m_Speed.Tilt != 0;
  return m_Position.Pan != m_Target.Pan || m_Position.Tilt != m_Target.Tilt;
}

bool CPTZHead::MovingZoom(Clock::time_point now) {
  Advance(now);
  return m_BSeeking ? m_Position.Zoom != m_Target.Zoom : m_Speed.Zoom != 0;
}
