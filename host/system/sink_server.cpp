#include "host/system/sink_server.h"

#include <algorithm>

CNotifySink::~CNotifySink() = default;

CSinkServer::CSinkServer() = default;
CSinkServer::~CSinkServer() = default;

void CSinkServer::AddNotifySink(CNotifySink* sink) {
  CGXLock lock(m_Lock);
  if (sink != nullptr && std::find(m_Sinks.begin(), m_Sinks.end(), sink) == m_Sinks.end())
    m_Sinks.push_back(sink);
}

void CSinkServer::RemoveNotifySink(CNotifySink* sink) {
  CGXLock lock(m_Lock);
  std::erase(m_Sinks, sink);
}

void CSinkServer::NotifySinks(int id, int code) {
  CGXLock lock(m_Lock);
  for (size_t i = 0; i < m_Sinks.size();) {
    CNotifySink* const sink = m_Sinks[i];
    sink->OnNotify(id, code);
    // A receiver may remove itself, or one before it, from within: then the next one has moved to this place.
    if (i < m_Sinks.size() && m_Sinks[i] == sink) ++i;
  }
}
