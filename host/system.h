// The controller as components see it: the list of components, the main-thread lock, notices of change.
#pragma once

#include "host/component.h"

#include <atomic>
#include <memory>

class CVideoSystem;

class CSystem {
 public:
  static CSystem* Instance();

  // The lock under which the main thread works and others may touch what belongs to it. Recursive; served in
  // the order of asking; given up between two components. 0, and not held, when the calling thread is or
  // becomes cancelled.
  int LockMainThread();
  void UnlockMainThread();

  void NotifyConfigChanged();  // the configuration changed and is to be saved; any thread, only sets a flag
  void NotifyWrite();          // likewise
  bool TakeSaveRequest();      // main thread: whether a save was asked for since the last call

  int ClockDisplayMode() const { return m_iClockMode; }  // 12 or 24
  void ClockDisplayMode(int mode) { m_iClockMode = mode; }

  // Components, in the order installed. The system owns them.
  int NComponents() const;
  CSystemComponent* Component(int index) const;  // null past the end
  CSystemComponent* ComponentByID(int id) const;
  int NVideo() const;                          // those that are video systems
  CVideoSystem* VideoSystem(int index) const;  // null past the end

  // Takes a component into service: gives it an id when it has none.
  void AddComponent(std::unique_ptr<CSystemComponent> component);
  // Takes a component out and deletes it: first out of the lists (idle and file thread excluded), then its
  // communication thread is stopped without the main lock, then it is deleted. Not under the main lock. False
  // when there is none.
  bool RemoveComponent(int id);
  void RemoveAllComponents();

  // One pass of the main thread: posted calls, then OnComponentIdle of every component, the lock given up in
  // between.
  void MainThreadPass();
  // Runs `call` in the next main-thread pass; any thread.
  void PostToMainThread(void (*call)(void* argument), void* argument);

  // The file thread: FileThreadOnIdle of every component about every 100 ms.
  void StartFileThread();
  void StopFileThread();

 private:
  CSystem();
  ~CSystem();
  struct State;
  std::unique_ptr<State> m_pState;
  std::atomic<int> m_iClockMode{24};
};
