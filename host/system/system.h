// The controller as components see it: the list of components, the main-thread lock, notices of change.
#pragma once

#include "host/system/component.h"

#include <atomic>
#include <memory>

class CVideoSystem;

// Lifetime of components. A pointer that Component(), ComponentByID() or VideoSystem() gives stays good
//   - under the main-thread lock, for as long as it is held, or
//   - for the life of a CComponentListLock that was made before asking for it (workers that may take long, such
//   as
//     a search for devices, and the file thread use this; it keeps nobody out but the removal of components).
// RemoveComponent takes the component out of the lists under the main-thread lock, then, holding no lock at
// all, waits for the CComponentListLocks that are older than that. So whoever holds one may wait for the
// main-thread lock, or for anything else but a removal.
class CSystem {
 public:
  static CSystem* Instance();

  // The lock under which the main thread works and others may touch what belongs to it. It is the highest of
  // all: ask for it while holding no other (a CComponentListLock excepted). Recursive; served in the order of
  // asking; given up between two components. 0, and not taken, when the calling thread is or becomes cancelled;
  // a thread that holds it already gets it in any case.
  int LockMainThread();
  void UnlockMainThread();
  bool HoldsMainThread() const;  // whether the calling thread does

  void NotifyConfigChanged();  // the configuration changed and is to be saved; any thread, only sets a flag
  void NotifyWrite();          // likewise
  bool TakeSaveRequest();      // main thread: whether a save was asked for since the last call

  int ClockDisplayMode() const { return m_iClockMode; }  // 12 or 24
  void ClockDisplayMode(int mode) { m_iClockMode = mode; }

  // Components, in the order installed. The system owns them. Any thread; for the pointers see above.
  int NComponents() const;
  CSystemComponent* Component(int index) const;  // null past the end
  CSystemComponent* ComponentByID(int id) const;
  int NVideo() const;                          // those that are video systems
  CVideoSystem* VideoSystem(int index) const;  // null past the end

  // Takes a component into service: gives it an id when it has none or one that is taken. Any thread.
  void AddComponent(std::unique_ptr<CSystemComponent> component);
  // Takes a component out and deletes it: first out of the lists (idle and file thread excluded), then it is
  // leaving, then its communication thread is stopped, then it is deleted on the calling thread. Refused under
  // the main-thread lock or a CComponentListLock of the calling thread. False when refused or when there is
  // none.
  bool RemoveComponent(int id);
  void RemoveAllComponents();  // likewise; all are told to stop before the first is waited for

  // One pass of the main thread: posted calls, then OnComponentIdle of every component, each under the lock,
  // which is given up in between.
  void MainThreadPass();
  // Runs `call` in the next main-thread pass, under the lock; any thread.
  void PostToMainThread(void (*call)(void* argument), void* argument);
  // Forgets the posted calls with that argument and waits for one in flight: before the argument goes away.
  void DropPosted(const void* argument);

  // The file thread: FileThreadOnIdle of every component about every 100 ms, under a CComponentListLock.
  void StartFileThread();
  void StopFileThread();

 private:
  friend class CComponentListLock;
  CSystem();
  ~CSystem();
  static void Retire(CSystemComponent* component);
  static void End(CSystemComponent* component);
  bool MayRemove() const;
  void FileThreadPass();
  static unsigned FileThreadEntry(void* self);

  struct State;
  std::unique_ptr<State> m_pState;
  std::atomic<int> m_iClockMode{24};
};

// Holds the main-thread lock for a scope. False when it was not to be had: then touch nothing that it guards.
class CMainThreadLock {
 public:
  CMainThreadLock() : m_bHeld(CSystem::Instance()->LockMainThread() != 0) {}
  ~CMainThreadLock() {
    if (m_bHeld) CSystem::Instance()->UnlockMainThread();
  }
  CMainThreadLock(const CMainThreadLock&) = delete;
  CMainThreadLock& operator=(const CMainThreadLock&) = delete;
  explicit operator bool() const { return m_bHeld; }

 private:
  const bool m_bHeld;
};

// While it lives, no component that was in the lists when it was made is deleted. Never waits.
class CComponentListLock {
 public:
  CComponentListLock();
  ~CComponentListLock();
  CComponentListLock(const CComponentListLock&) = delete;
  CComponentListLock& operator=(const CComponentListLock&) = delete;

 private:
  unsigned long long m_qTicket;
};
