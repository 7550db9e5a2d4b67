// The communication thread of a component.
#pragma once

#include "host/base/gxstring.h"
#include "host/base/gxthread.h"

#include <atomic>

class CGeneralCommThread {
 public:
  CGeneralCommThread();
  virtual ~CGeneralCommThread();  // a derived class has stopped the thread before its own parts go

  virtual int Run() = 0;  // the thread's body; returns soon after StopFlag() is set

  // Starts the thread under that name; when it runs already it is stopped and joined first. 0 when there is no
  // thread to be had, or when called on the thread itself.
  int StartThread(const CGXString& name);
  void RequestStop();  // sets the stop flag and cancels the thread's waits; does not wait for its end
  // RequestStop, then joins it (on the thread itself: only the former). Waiting for the main-thread lock ends
  // with the cancelling, so the caller may hold that lock. StartThread works again afterwards.
  void StopThread();

  bool ThreadRunning() const;
  bool StopFlag() const { return m_bStop; }
  void StopFlag(bool stop) { m_bStop = stop; }

 private:
  static unsigned ThreadEntry(void* self);
  CGXCritical m_StartLock;
  std::atomic<bool> m_bStop{false};
  CGXThread m_Thread;
};

// A communication thread that talks over the network; the sizes are those of its receive and transmit buffers
// in bytes.
class CNetworkCommThread : public CGeneralCommThread {
 public:
  CNetworkCommThread(int receiveBuffer, int transmitBuffer);
  ~CNetworkCommThread() override;
  int Run() override;  // nothing to do unless overridden
};
