#include "host/base/gxworker.h"

int CGXWorker::Start(CGXThread::Entry entry, void* argument, unsigned stackSize, const char* name) {
  const CGXLock lock(m_StartLock);
  m_Thread.Join();
  const int started = m_Thread.Start(entry, argument, stackSize, name);
  if (started == 0) m_bClaimed = false;
  return started;
}
