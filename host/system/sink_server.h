// Notices of a component to those who wait for something of it.
#pragma once

#include "host/base/gxthread.h"

#include <vector>

class CNotifySink {
 public:
  virtual ~CNotifySink();
  // `id`: the component; `code`: what became ready. Called on the main thread.
  virtual void OnNotify(int id, int code) = 0;
};

// Notices are given under the server's lock, so a receiver that was removed is not being called any more; it
// may remove itself from within a notice.
class CSinkServer {
 public:
  CSinkServer();
  virtual ~CSinkServer();

  void AddNotifySink(CNotifySink* sink);     // the caller keeps it; adding twice has no effect
  void RemoveNotifySink(CNotifySink* sink);  // waits for a notice in flight
  void NotifySinks(int id, int code);        // main thread

 private:
  CGXCritical m_Lock;
  std::vector<CNotifySink*> m_Sinks GUARDED_BY(m_Lock);
};
