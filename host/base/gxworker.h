// A thread that exists while there is work for it.
#pragma once

#include "host/base/gxthread.h"

#include <atomic>

// Whoever brings work decides whether to start the thread, and the thread decides whether it ends, both under
// the lock that guards the work: so nothing that is brought at the last moment is left lying.
//
//   bring:   { lock; put the work; start = worker.Claim(lock); }  if (start) worker.Start(...);
//   thread:  { lock; if (no work) { worker.Release(lock); return; } }
class CGXWorker {
 public:
  // True: no thread is at work, and the caller starts one now, without the lock.
  template <class LOCK>
  bool Claim(LOCK& lock) REQUIRES(lock) {
    static_cast<void>(lock);
    return !m_bClaimed.exchange(true);
  }
  // By the thread: it ends, and does not look for work any more.
  template <class LOCK>
  void Release(LOCK& lock) REQUIRES(lock) {
    static_cast<void>(lock);
    m_bClaimed = false;
  }

  // After Claim: joins the thread before, which may still be on its way out, and starts the next. 0 and
  // released when there is none to be had; the work stays until somebody claims again.
  int Start(CGXThread::Entry entry, void* argument, unsigned stackSize, const char* name);

  // Held from Cancel to Reset, it makes a Start in between wait for the Reset instead of failing.
  CGXCritical& StartLock() { return m_StartLock; }
  void Cancel() { m_Thread.Cancel(); }
  void Join() { m_Thread.Join(); }
  void Reset() { m_Thread.Reset(); }

 private:
  std::atomic<bool> m_bClaimed{false};
  CGXCritical m_StartLock;  // the thread may end, and the next be claimed, while the first is being started
  CGXThread m_Thread;
};
