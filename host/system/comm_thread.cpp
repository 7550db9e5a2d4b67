#include "host/system/comm_thread.h"

#include "host/base/gxassert.h"

namespace {

thread_local const CGeneralCommThread* t_pCurrent = nullptr;  // whose body the calling thread runs

}  // namespace

CGeneralCommThread::CGeneralCommThread() = default;

CGeneralCommThread::~CGeneralCommThread() {
  if (ThreadRunning()) AssertWrap("comm_thread", __LINE__);  // Run() of a derived class has lost its object
  StopThread();
}

unsigned CGeneralCommThread::ThreadEntry(void* self) {
  auto* const thread = static_cast<CGeneralCommThread*>(self);
  t_pCurrent = thread;
  thread->Run();
  t_pCurrent = nullptr;
  return 0;
}

int CGeneralCommThread::StartThread(const CGXString& name) {
  if (t_pCurrent == this) {
    AssertWrap("comm_thread", __LINE__);  // it cannot join itself
    return 0;
  }
  CGXLock lock(m_StartLock);
  RequestStop();
  m_Thread.Reset();
  m_bStop = false;
  return m_Thread.Start(ThreadEntry, this, 0, name);
}

void CGeneralCommThread::RequestStop() {
  m_bStop = true;
  m_Thread.Cancel();
}

void CGeneralCommThread::StopThread() {
  if (t_pCurrent == this) return RequestStop();
  RequestStop();  // before the lock: whoever holds it may be waiting for this very thread
  CGXLock lock(m_StartLock);
  RequestStop();
  m_Thread.Join();
}

bool CGeneralCommThread::ThreadRunning() const {
  return m_Thread.IsRunning();
}

CNetworkCommThread::CNetworkCommThread(int, int) {}
CNetworkCommThread::~CNetworkCommThread() = default;
int CNetworkCommThread::Run() {
  return 0;
}
