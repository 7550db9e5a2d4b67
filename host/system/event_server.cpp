#include "host/system/event_server.h"

#include "host/base/gxthread.h"
#include "host/intercom/intercom.h"
#include "host/system/system.h"

#include <sys/eventfd.h>

#include <deque>
#include <set>
#include <utility>

struct CEventServer::State {
  CGXCritical Lock;
  std::deque<GXT_EVENT> Queue GUARDED_BY(Lock);
  std::set<std::pair<int, int>> Commands GUARDED_BY(Lock);  // component id, command
  std::function<void(const GXT_EVENT&)> Receiver GUARDED_BY(Lock);
  const int Queued = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);  // signalled and taken back under Lock
};

CEventServer::CEventServer() : m_pState(std::make_unique<State>()) {}
CEventServer::~CEventServer() = default;

CEventServer* CEventServer::Instance() {
  static CEventServer* const server = new CEventServer;  // never destroyed: any thread may raise an event
  return server;
}

void CEventServer::RegisterEvent(int componentID, int event, int data) {
  CGXLock lock(m_pState->Lock);
  if (m_pState->Queue.size() >= MOST_EVENTS) return;
  if (m_pState->Queue.empty()) eventfd_write(m_pState->Queued, 1);
  m_pState->Queue.push_back({componentID, event, data});
}

int CEventServer::Descriptor() const {
  return m_pState->Queued;
}

void CEventServer::CheckCommand(int componentID, int command, int, int enabled) {
  CGXLock lock(m_pState->Lock);
  if (enabled != 0) {
    m_pState->Commands.emplace(componentID, command);
  } else {
    m_pState->Commands.erase({componentID, command});
  }
}

bool CEventServer::HasCommand(int componentID, int command) const {
  CGXLock lock(m_pState->Lock);
  return m_pState->Commands.count({componentID, command}) != 0;
}

void CEventServer::ForgetComponent(int componentID) {
  CGXLock lock(m_pState->Lock);
  std::erase_if(m_pState->Commands, [componentID](const auto& entry) { return entry.first == componentID; });
}

int CEventServer::DispatchEvents() {
  std::deque<GXT_EVENT> queue;
  std::function<void(const GXT_EVENT&)> receiver;
  {
    CGXLock lock(m_pState->Lock);
    queue.swap(m_pState->Queue);
    eventfd_t count = 0;
    eventfd_read(m_pState->Queued, &count);
    receiver = m_pState->Receiver;
  }
  if (receiver)
    for (const GXT_EVENT& event : queue) receiver(event);
  return static_cast<int>(queue.size());
}

void CEventServer::Receiver(std::function<void(const GXT_EVENT&)> receiver) {
  CGXLock lock(m_pState->Lock);
  m_pState->Receiver = std::move(receiver);
}

bool CEventServer::ExecuteCommand(int componentID, int command) {
  if (!HasCommand(componentID, command)) return false;
  const CMainThreadLock lock;
  CSystemComponent* const component = lock ? CSystem::Instance()->ComponentByID(componentID) : nullptr;
  CIntercomClient* const client = component != nullptr ? component->GetIcomClient(ICOM_CLIENT_SELF) : nullptr;
  if (client == nullptr) return false;
  switch (command) {
    case COMMAND_PLACE_CALL:
      return client->InitiateCall(0) != 0;
    case COMMAND_CANCEL_CALL:
      return client->CancelCall(0) != 0;
    default:
      return false;
  }
}
