#include "camera/camera_clock.h"

// A step back past its start makes the stopwatch read 49 days, so one comparison finds every great step.
void CCameraClock::Look() {
  const unsigned now = m_Reading.Since.GXTickCount();
  if (now < m_dwLastLook || now - m_dwLastLook > MOST_BETWEEN_LOOKS_MS) {
    m_bWrong = true;
    ++m_nSteps;
  }
  m_dwLastLook = now;
}

void CCameraClock::Set(const CGXTime& time) {
  const CGXLock lock(m_Lock);
  m_Reading = {time, CGXTimer()};
  m_dwLastLook = 0;
  m_bWrong = false;
}

CCameraClock::CReading CCameraClock::Reading() {
  const CGXLock lock(m_Lock);
  Look();
  return m_Reading;
}

unsigned CCameraClock::Age() {
  const CGXLock lock(m_Lock);
  Look();
  return m_dwLastLook;
}

bool CCameraClock::Wrong() {
  const CGXLock lock(m_Lock);
  Look();
  return m_bWrong;
}

unsigned CCameraClock::Steps() {
  const CGXLock lock(m_Lock);
  Look();
  return m_nSteps;
}
