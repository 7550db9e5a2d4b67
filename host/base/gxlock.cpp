#include "host/base/gxlock.h"

#include <chrono>

void CGXCondition::Wait(CGXMutex& mutex) {
  std::unique_lock<std::mutex> hold(mutex.m_Mutex, std::adopt_lock);
  m_Condition.wait(hold);
  hold.release();
}

bool CGXCondition::WaitUntil(CGXMutex& mutex, const CGXDeadline& end) {
  const int left = end.Left();
  if (left == 0) return false;
  std::unique_lock<std::mutex> hold(mutex.m_Mutex, std::adopt_lock);
  m_Condition.wait_for(hold, std::chrono::milliseconds(left));
  hold.release();
  return true;
}
