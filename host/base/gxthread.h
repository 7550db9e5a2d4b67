// Event semaphore and threads of the host.
//
// Every CGXThread can be cancelled. Cancellation is latched: from then on every host wait that runs on that
// thread (WaitSocketReadState, Sleep, CGXSemaphore::WaitSignal, ConnectSocket, DoHTTPExchange,
// CSystem::LockMainThread) returns at once as if its time had run out, so a thread can be joined in the middle
// of any of them.
#pragma once

#include "host/base/gxlock.h"
#include "host/base/gxstring.h"

#include <atomic>
#include <memory>

// An event: SetEvent is latched until one wait succeeds, which resets it.
class CGXSemaphore {
 public:
  explicit CGXSemaphore(int count = 0);  // count above 0: created signalled
  ~CGXSemaphore();
  CGXSemaphore(const CGXSemaphore&) = delete;
  CGXSemaphore& operator=(const CGXSemaphore&) = delete;

  void SetEvent();
  bool WaitSignal(unsigned milliseconds);  // true when signalled in time

 private:
  int m_iEvent;  // eventfd
};

class CGXThread {
 public:
  using Entry = unsigned (*)(void* argument);

  CGXThread();
  ~CGXThread();  // cancels and joins
  CGXThread(const CGXThread&) = delete;
  CGXThread& operator=(const CGXThread&) = delete;

  // Starts `entry(argument)`; a finished earlier run is joined first. Refuses (0) while running, after Cancel,
  // or when the system has no thread to give. `stackSize` in bytes, 0 = the host's default; `name` is cut to
  // what the system shows; what follows its last ':' stays.
  int Start(Entry entry, void* argument, unsigned stackSize, const char* name);

  bool IsRunning() const;                    // from Start until the entry has returned
  bool WaitComplete(unsigned milliseconds);  // true when not running in time; then joined
  void Cancel();                             // latched; see above. Does not wait
  bool IsCancelled() const;
  void Join();   // waits without limit for the entry to return
  void Reset();  // Join, then forget an earlier Cancel, so that Start works again

  // Of the calling thread: whether it is a cancelled CGXThread, and a descriptor that is readable from then on
  // (-1: none).
  static bool CurrentCancelled();
  static int CurrentCancelDescriptor();

 private:
  struct State;
  std::shared_ptr<State> m_pState;
};
