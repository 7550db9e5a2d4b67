#include "host/intercom/intercom_client.h"

#include "host/base/gxthread.h"
#include "host/intercom/intercom.h"
#include "host/intercom/rtp_path.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"

#include <bitset>

namespace {

// Pairs of ports for sound: whichever offset they are used at, they stay clear of the other ports in use.
constexpr unsigned short FIRST_AUDIO_PORT = 9000;
constexpr int AUDIO_PORT_PAIRS = 200;
constexpr int PORTS_OF_PAIR = 2;

CGXCritical g_AudioPortLock;
std::bitset<AUDIO_PORT_PAIRS> g_AudioPortPairs GUARDED_BY(g_AudioPortLock);

}  // namespace

CIcomCallDelegate::~CIcomCallDelegate() = default;

CIntercomClient::CIntercomClient() = default;
CIntercomClient::~CIntercomClient() {
  CIntercomServer::Instance()->RemoveClient(this);
}

unsigned short CIntercomClient::AllocRTSPPort(int count) {
  if (count < 1 || count > PORTS_OF_PAIR) return 0;
  const CGXLock lock(g_AudioPortLock);
  for (int pair = 0; pair < AUDIO_PORT_PAIRS; ++pair) {
    if (g_AudioPortPairs[static_cast<size_t>(pair)]) continue;
    g_AudioPortPairs.set(static_cast<size_t>(pair));
    return static_cast<unsigned short>(FIRST_AUDIO_PORT + pair * PORTS_OF_PAIR);
  }
  return 0;
}

void CIntercomClient::FreeRTSPPort(unsigned short base) {
  const CGXLock lock(g_AudioPortLock);
  const int pair = (base - FIRST_AUDIO_PORT) / PORTS_OF_PAIR;
  if (base >= FIRST_AUDIO_PORT && pair < AUDIO_PORT_PAIRS) g_AudioPortPairs.reset(static_cast<size_t>(pair));
}

void CIntercomClient::AudioPathAt(unsigned short port, GXT_RTP_PATH_DESCRIPTOR* path) {
  SetPathAddress(path, GetIP(), port);
}

void CIntercomClient::RegisterIcomState(const GXT_ICOM_STATE* state) {
  const GXT_ICOM_STATE now = state != nullptr ? *state : GXT_ICOM_STATE{};
  m_pPeer = now.Peer;
  if (m_eState.exchange(now.State) != now.State) CIntercomServer::Instance()->NotifyState(this, now.State);
}

int CIntercomClient::AttachAudioStreamTarget(CIntercomClient* client, CAudioStreamTarget* target,
                                             GXT_RTP_PATH_DESCRIPTOR* path, STREAM_CTX ctx) {
  if (target == nullptr || path == nullptr || !CIntercomServer::Instance()->HasClient(client)) return 0;
  return client->HandleAudioStreamTargetAttach(target, path, ctx);
}

int CIntercomClient::DetachAudioStreamTarget(CIntercomClient* client, CAudioStreamTarget* target) {
  if (!CIntercomServer::Instance()->HasClient(client)) return 0;
  return client->HandleAudioStreamTargetDetach(target);
}

// ---- A client that can do none of it ----

CSystemComponent* CIntercomClient::IcomBindingObject() {
  return nullptr;
}
CVideoSystem* CIntercomClient::GetVideoSystem() {
  return nullptr;
}
CGXString CIntercomClient::IcomName() {
  return {};
}
int CIntercomClient::IcomHardwareType() {
  return 0;
}
unsigned CIntercomClient::GetIP() {
  return GetPrimaryIP();
}
bool CIntercomClient::UsesRelay() {
  return false;
}
bool CIntercomClient::TakesDefaultCalls() {
  return false;
}
int CIntercomClient::AnswerMode() {
  return ICOM_ANSWER_BY_USER;
}
int CIntercomClient::AnnounceVolume() {
  return 0;
}
int CIntercomClient::InitiateCall(int) {
  return 0;
}
int CIntercomClient::CancelCall(int) {
  return 0;
}
int CIntercomClient::HandleBeginSession(CIntercomClient*, CALL_TYPE, CALL_TYPE, INCOMING_CALL_CTX) {
  return 0;
}
int CIntercomClient::HandleCancelSession() {
  return 0;
}
void CIntercomClient::OnSessionBegun(CIntercomClient*, CALL_TYPE, CALL_TYPE, INCOMING_CALL_CTX) {}
void CIntercomClient::OnSessionCancelled() {}
bool CIntercomClient::HasAudioRX() {
  return false;
}
int CIntercomClient::BeginReceiveAudioFrom(CIntercomClient*) {
  return 0;
}
int CIntercomClient::StopReceiveAudio() {
  return 0;
}
int CIntercomClient::SetIcomAudioRXState(CIntercomClient*, int) {
  return 0;
}
int CIntercomClient::StreamAudioFromRTSP(CRTSPProfile*, CIntercomClient*, int) {
  return 0;
}
int CIntercomClient::StopAudioStream() {
  return 0;
}
int CIntercomClient::HandleAudioStreamTargetAttach(CAudioStreamTarget*, GXT_RTP_PATH_DESCRIPTOR*, STREAM_CTX) {
  return 0;
}
int CIntercomClient::HandleAudioStreamTargetDetach(CAudioStreamTarget*) {
  return 0;
}
