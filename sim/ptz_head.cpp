#include "sim/ptz_head.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kFullSpeed = 0.5;    // units a second at speed 1
constexpr double kPresetSpeed = 1.5;  // units a second when heading for a position

CPtzVector Clamp(const CPtzVector& v) {
  return {std::clamp(v.pan, -1.0, 1.0), std::clamp(v.tilt, -1.0, 1.0), std::clamp(v.zoom, 0.0, 1.0)};
}

double Approach(double from, double to, double step) {
  return from + std::clamp(to - from, -step, step);
}

}  // namespace

void CPtzHead::Advance(Clock::time_point now) {
  if (m_at == Clock::time_point{}) m_at = now;
  const Clock::time_point end = m_seeking ? now : std::clamp(m_until, m_at, std::max(m_at, now));
  const double seconds = std::chrono::duration<double>(end - m_at).count();
  m_at = std::max(m_at, now);
  if (m_seeking) {
    const double step = seconds * kPresetSpeed;
    m_position = {Approach(m_position.pan, m_target.pan, step), Approach(m_position.tilt, m_target.tilt, step),
                  Approach(m_position.zoom, m_target.zoom, step)};
    return;
  }
  const double step = seconds * kFullSpeed;
  m_position = Clamp({m_position.pan + m_speed.pan * step, m_position.tilt + m_speed.tilt * step,
                      m_position.zoom + m_speed.zoom * step});
  if (now >= m_until) m_speed = {};
}

void CPtzHead::Continuous(const CPtzVector& speed, Clock::duration timeout, Clock::time_point now) {
  Advance(now);
  m_seeking = false;
  m_speed = speed;
  m_until = now + timeout;
}

void CPtzHead::MoveTo(const CPtzVector& target, Clock::time_point now) {
  Advance(now);
  m_seeking = true;
  m_speed = {};
  m_target = Clamp(target);
}

void CPtzHead::Stop(bool panTilt, bool zoom, Clock::time_point now) {
  Advance(now);
  if (panTilt) {
    m_speed.pan = m_speed.tilt = 0;
    m_target.pan = m_position.pan;
    m_target.tilt = m_position.tilt;
  }
  if (zoom) {
    m_speed.zoom = 0;
    m_target.zoom = m_position.zoom;
  }
}

CPtzVector CPtzHead::Position(Clock::time_point now) {
  Advance(now);
  return m_position;
}

CPtzVector CPtzHead::Target(Clock::time_point now) {
  Advance(now);
  return m_seeking ? m_target : m_position;
}

bool CPtzHead::MovingPanTilt(Clock::time_point now) {
  Advance(now);
  if (!m_seeking) return m_speed.pan != 0 || m_speed.tilt != 0;
  return m_position.pan != m_target.pan || m_position.tilt != m_target.tilt;
}

bool CPtzHead::MovingZoom(Clock::time_point now) {
  Advance(now);
  return m_seeking ? m_position.zoom != m_target.zoom : m_speed.zoom != 0;
}
