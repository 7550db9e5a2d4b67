#include "host/intercom.h"

#include <algorithm>

struct CIntercomServer::State {
  mutable CGXCritical Lock;
  std::vector<CIntercomClient*> Clients GUARDED_BY(Lock);
};

CIcomCallDelegate::~CIcomCallDelegate() = default;

CIntercomClient::CIntercomClient() = default;
CIntercomClient::~CIntercomClient() {
  CIntercomServer::Instance()->RemoveClient(this);
}
CSystemComponent* CIntercomClient::IcomBindingObject() {
  return nullptr;
}
CGXString CIntercomClient::IcomName() {
  return {};
}
int CIntercomClient::IcomHardwareType() {
  return 0;
}
unsigned CIntercomClient::GetIP() {
  return 0;
}
int CIntercomClient::InitiateCall(int) {
  return 0;
}
int CIntercomClient::CancelCall(int) {
  return 0;
}

CIntercomServer::CIntercomServer() : m_pState(std::make_unique<State>()) {}
CIntercomServer::~CIntercomServer() = default;

CIntercomServer* CIntercomServer::Instance() {
  static CIntercomServer* const server = new CIntercomServer;  // never destroyed: clients may outlive statics
  return server;
}

void CIntercomServer::RegisterClient(CIntercomClient* client) {
  CGXLock lock(m_pState->Lock);
  if (client != nullptr && !HasClient(client)) m_pState->Clients.push_back(client);
}

void CIntercomServer::RemoveClient(CIntercomClient* client) {
  CGXLock lock(m_pState->Lock);
  std::erase(m_pState->Clients, client);
}

bool CIntercomServer::HasClient(const CIntercomClient* client) const {
  const State& state = *m_pState;
  CGXLock lock(state.Lock);
  return std::find(state.Clients.begin(), state.Clients.end(), client) != state.Clients.end();
}

std::vector<CIntercomClient*> CIntercomServer::Clients() const {
  CGXLock lock(m_pState->Lock);
  return m_pState->Clients;
}
