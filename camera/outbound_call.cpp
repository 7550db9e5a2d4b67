#include "camera/outbound_call.h"

#include "host/intercom/intercom.h"

#include <algorithm>
#include <utility>

COutboundCall::COutboundCall(CIntercomClient** receivers, int count, CONVIFCam* camera)
    : m_pCamera(camera),
      m_pReceivers(std::make_unique<CIntercomClient*[]>(static_cast<size_t>(std::max(count, 0)))),
      m_nReceivers(std::max(count, 0)) {
  std::copy_n(receivers, m_nReceivers, m_pReceivers.get());
}

COutboundCall::~COutboundCall() = default;

int COutboundCall::SecondsElapsed() const {
  return static_cast<int>(m_Timer.GXTickCount() / 1000);
}

int COutboundCall::NReceivers() const {
  return m_nReceivers -
         static_cast<int>(std::count(m_pReceivers.get(), m_pReceivers.get() + m_nReceivers, nullptr));
}

void COutboundCall::CallDeclined(CIntercomClient* receiver) {
  Remove(receiver);
}

void COutboundCall::Remove(CIntercomClient* receiver) {
  std::replace(m_pReceivers.get(), m_pReceivers.get() + m_nReceivers, receiver,
               static_cast<CIntercomClient*>(nullptr));
}

void COutboundCall::Cancel(CIntercomClient* caller) {
  CIntercomServer* const server = CIntercomServer::Instance();
  for (int i = 0; i < m_nReceivers; ++i) {
    CIntercomClient* const receiver = std::exchange(m_pReceivers[static_cast<size_t>(i)], nullptr);
    if (receiver == nullptr || !server->HasClient(receiver)) continue;
    server->CancelCall(caller, receiver);
    // Not the state of one who talks, or rings for somebody else: this call never reached it.
    if (receiver->IcomState() == ICOM_CLIENT_RINGING && receiver->IcomPeer() == caller)
      receiver->RegisterIcomState(nullptr);
  }
}
