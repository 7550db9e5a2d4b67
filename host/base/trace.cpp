#include "host/base/trace.h"

#include "host/base/gxassert.h"

#include <algorithm>

namespace {

// A listener that speaks while it is being spoken to would call itself for ever; such lines are dropped.
thread_local bool t_bDelivering = false;

void DeliverWrapped(const char* text) {
  CTraceServer::Instance()->Deliver(nullptr, text);
}

}  // namespace

CTraceProducer::CTraceProducer(CGXString name) : m_TraceName(std::move(name)) {
  CTraceServer::Instance()->AddProducer(this);
}

CTraceProducer::~CTraceProducer() {
  CTraceServer::Instance()->RemoveProducer(this);
}

void CTraceProducer::Trace(const CGXString& line) {
  if (m_bTrace) CTraceServer::Instance()->Deliver(this, line);
}

CGXString CTraceProducer::TraceName() const {
  CGXLock lock(m_NameLock);
  return m_TraceName;
}

void CTraceProducer::TraceName(const CGXString& name) {
  CGXLock lock(m_NameLock);
  m_TraceName = name;
}

CTraceListener::~CTraceListener() = default;

CTraceServer::CTraceServer() = default;

CTraceServer* CTraceServer::Instance() {
  // Never destroyed: components and the process-wide trace line may speak until the process is gone.
  static CTraceServer* const server = new CTraceServer;
  return server;
}

void CTraceServer::LoadStateFor(CTraceProducer* producer) {
  CGXLock lock(m_Lock);
  producer->m_bTrace = !m_Listeners.empty();
}

void CTraceServer::AddListener(CTraceListener* listener) {
  CGXLock lock(m_Lock);
  if (std::find(m_Listeners.begin(), m_Listeners.end(), listener) != m_Listeners.end()) return;
  m_Listeners.push_back(listener);
  SwitchProducers();
}

void CTraceServer::RemoveListener(CTraceListener* listener) {
  CGXLock lock(m_Lock);
  std::erase(m_Listeners, listener);
  SwitchProducers();
}

void CTraceServer::SwitchProducers() {
  SetTraceHook(m_Listeners.empty() ? nullptr : DeliverWrapped);
  for (CTraceProducer* producer : m_Producers) producer->m_bTrace = !m_Listeners.empty();
}

void CTraceServer::AddProducer(CTraceProducer* producer) {
  CGXLock lock(m_Lock);
  m_Producers.insert(producer);
  producer->m_bTrace = !m_Listeners.empty();
}

void CTraceServer::RemoveProducer(CTraceProducer* producer) {
  CGXLock lock(m_Lock);
  m_Producers.erase(producer);
}

void CTraceServer::Deliver(CTraceProducer* producer, const CGXString& line) {
  if (t_bDelivering) return;
  CGXLock lock(m_Lock);
  t_bDelivering = true;
  for (size_t i = 0; i < m_Listeners.size();) {
    CTraceListener* const listener = m_Listeners[i];
    listener->OnTrace(producer, line);
    if (i < m_Listeners.size() && m_Listeners[i] == listener) ++i;  // else it has removed itself from within
  }
  t_bDelivering = false;
}
