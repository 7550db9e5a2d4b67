// Locks and the condition variable of host and controller. clang checks their use (-Wthread-safety): what a
// lock guards says GUARDED_BY, who must hold it REQUIRES.
#pragma once

#include "host/base/gxwait.h"
#include "host/base/thread_annotations.h"

#include <condition_variable>
#include <mutex>

// A lock that one thread holds at a time; recursive, since components call their own operations under it.
class CAPABILITY("lock") CGXCritical {
 public:
  CGXCritical() = default;
  CGXCritical(const CGXCritical&) = delete;
  CGXCritical& operator=(const CGXCritical&) = delete;
  void GXLock() ACQUIRE() { m_Mutex.lock(); }
  void GXUnlock() RELEASE() { m_Mutex.unlock(); }

 private:
  std::recursive_mutex m_Mutex;
};

// The same, not recursive: what can be waited under.
class CAPABILITY("mutex") CGXMutex {
 public:
  CGXMutex() = default;
  CGXMutex(const CGXMutex&) = delete;
  CGXMutex& operator=(const CGXMutex&) = delete;
  void GXLock() ACQUIRE() { m_Mutex.lock(); }
  void GXUnlock() RELEASE() { m_Mutex.unlock(); }

 private:
  friend class CGXCondition;
  std::mutex m_Mutex;
};

// Holds one of them for a scope; may be given up and taken again within it.
template <class LOCK>
class SCOPED_CAPABILITY CGXLock {
 public:
  explicit CGXLock(LOCK& lock) ACQUIRE(lock) : m_Lock(lock) { m_Lock.GXLock(); }
  ~CGXLock() RELEASE() {
    if (m_bHeld) m_Lock.GXUnlock();
  }
  CGXLock(const CGXLock&) = delete;
  CGXLock& operator=(const CGXLock&) = delete;

  void GXUnlock() RELEASE() {
    m_bHeld = false;
    m_Lock.GXUnlock();
  }
  void GXLock() ACQUIRE() {
    m_Lock.GXLock();
    m_bHeld = true;
  }

 private:
  LOCK& m_Lock;
  bool m_bHeld = true;
};

// Waits for something that is changed under a CGXMutex: ask for it in a loop, since a wait may end without
// reason. Cancelling a CGXThread does not end these waits.
class CGXCondition {
 public:
  void Wait(CGXMutex& mutex) REQUIRES(mutex);                               // gives the mutex up meanwhile
  bool WaitUntil(CGXMutex& mutex, const CGXDeadline& end) REQUIRES(mutex);  // false once the time is over
  void NotifyAll() { m_Condition.notify_all(); }

 private:
  std::condition_variable m_Condition;
};
