// The lock of the main thread; components reach it through CSystem.
#pragma once

#include "host/base/gxthread.h"

#include <atomic>
#include <deque>
#include <thread>

// Recursive, and fair: it is handed over directly to whoever has waited longest, so a thread that gives it up
// and asks again comes after those who wait. A cancelled thread leaves the queue.
class CMainLock {
 public:
  bool Lock();                // false, and not taken, when the calling thread is or becomes cancelled
  bool Unlock();              // false when the calling thread does not hold it
  bool HeldByCaller() const;  // whether the calling thread does
  int Waiting() const;        // how many threads wait for it

 private:
  struct Waiter {
    const std::thread::id Thread = std::this_thread::get_id();
    CGXSemaphore Granted;
  };
  bool Wait() REQUIRES(m_Mutex);
  void HandOver() REQUIRES(m_Mutex);

  mutable CGXMutex m_Mutex;
  std::atomic<std::thread::id> m_Owner{};  // none: free; set under m_Mutex, which its own thread need not ask
  int m_nDepth GUARDED_BY(m_Mutex) = 0;
  std::deque<Waiter*> m_Waiters GUARDED_BY(m_Mutex);
};
