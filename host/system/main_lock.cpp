#include "host/system/main_lock.h"

#include <algorithm>

namespace {

constexpr unsigned RECHECK_PERIOD = 1000;  // ms; a hand-over is signalled, this only covers a lost signal

}  // namespace

bool CMainLock::HeldByCaller() const {
  return m_Owner == std::this_thread::get_id();
}

bool CMainLock::Lock() {
  const CGXLock hold(m_Mutex);
  if (!HeldByCaller()) {
    if (CGXThread::CurrentCancelled()) return false;
    if (m_Owner != std::thread::id()) {
      if (!Wait()) return false;
    } else {
      m_Owner = std::this_thread::get_id();
    }
  }
  ++m_nDepth;
  return true;
}

// Waits until the lock has been handed over to the calling thread; false when it was cancelled.
bool CMainLock::Wait() {
  Waiter self;
  m_Waiters.push_back(&self);
  while (!HeldByCaller() && !CGXThread::CurrentCancelled()) {
    m_Mutex.GXUnlock();
    self.Granted.WaitSignal(RECHECK_PERIOD);
    m_Mutex.GXLock();
  }
  if (!CGXThread::CurrentCancelled()) return true;
  if (HeldByCaller()) {
    HandOver();  // it came at the moment of cancelling
  } else {
    std::erase(m_Waiters, &self);
  }
  return false;
}

void CMainLock::HandOver() {
  if (m_Waiters.empty()) {
    m_Owner = std::thread::id();
    return;
  }
  Waiter* const next = m_Waiters.front();
  m_Waiters.pop_front();
  m_Owner = next->Thread;
  next->Granted.SetEvent();  // under m_Mutex: the waiter is still there
}

bool CMainLock::Unlock() {
  const CGXLock hold(m_Mutex);
  if (!HeldByCaller()) return false;
  if (--m_nDepth == 0) HandOver();
  return true;
}

int CMainLock::Waiting() const {
  const CGXLock hold(m_Mutex);
  return static_cast<int>(m_Waiters.size());
}
