// The camera as a party of the intercom: what it is, the talk on its speaker, and a door station's call.
#include "audio/vivotek_audio_out.h"
#include "camera/ONVIFCam.h"
#include "camera/outbound_call.h"
#include "host/base/gxassert.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"

#include <utility>

namespace {

constexpr const char* MAKER_DOOR_STATION = "VIVOTEK";
constexpr const char* MODEL_DOOR_STATION = "IP8133";
constexpr int MODEL_DOOR_STATION_CHARS = 6;
constexpr int ANNOUNCE_VOLUME = 100;  // percent
constexpr int RINGING_SECONDS = 15;

}  // namespace

// ---- What it is ----

bool CONVIFCam::HasSpeaker() const {
  return m_Identity.Names().Manufacturer.CompareNoCase(MAKER_DOOR_STATION) == 0;
}

bool CONVIFCam::IsDoorStation() const {
  const CCameraIdentity::CNames identity = m_Identity.Names();
  return identity.Manufacturer.CompareNoCase(MAKER_DOOR_STATION) == 0 &&
         identity.Model.Left(MODEL_DOOR_STATION_CHARS).CompareNoCase(MODEL_DOOR_STATION) == 0;
}

CIntercomClient* CONVIFCam::GetIcomClient(ICOM_CLIENT_CTX ctx) {
  return ctx == ICOM_CLIENT_SELF ? this : nullptr;
}

int CONVIFCam::IcomHardwareType() {
  return IsDoorStation() ? ICOM_HARDWARE_DOOR_STATION : ICOM_HARDWARE_CAMERA;
}

unsigned CONVIFCam::GetIP() {
  return GetPrimaryIP();
}

int CONVIFCam::AnnounceVolume() {
  return ANNOUNCE_VOLUME;
}

bool CONVIFCam::HasAudioRX() {
  return IsDoorStation();
}

// ---- Talk on its speaker ----

int CONVIFCam::BeginReceiveAudioFrom(CIntercomClient* client) {
  {
    const CGXLock lock(m_AudioLock);
    if (m_pAudioOut != nullptr && m_pAudioOut->IsRunning()) return 0;  // one talker at a time
  }
  SetAudioOut(nullptr);
  if (!HasSpeaker()) {
    AssertWrap("ONVIFCam", __LINE__);
    return 0;
  }
  auto output = std::make_unique<CVivotek_AudioOut>(this, client);
  output->Start();
  if (!output->IsRunning()) return 0;
  SetAudioOut(std::move(output));
  return 1;
}

int CONVIFCam::StopReceiveAudio() {
  {
    const CGXLock lock(m_AudioLock);
    if (m_pAudioOut == nullptr) return 0;
    m_pAudioOut->Stop();
    if (m_pAudioOut->IsRunning()) return 1;
  }
  SetAudioOut(nullptr);
  return 1;
}

// The former one says goodbye to the camera while it is deleted, so nothing is locked then.
void CONVIFCam::SetAudioOut(std::unique_ptr<CONVIF_AudioOut> output) {
  const CGXLock lock(m_AudioLock);
  m_pAudioOut.swap(output);
}

int CONVIFCam::SetIcomAudioRXState(CIntercomClient* /*client*/, int on) {
  const CGXLock lock(m_AudioLock);
  if (m_pAudioOut == nullptr) return 0;
  m_pAudioOut->EnableAudioTX(on);
  if (on == 0) m_AudioSquelch.Release();
  return 1;
}

int CONVIFCam::HandleBeginSession(CIntercomClient* caller, CALL_TYPE callerType, CALL_TYPE type,
                                  INCOMING_CALL_CTX ctx) {
  OnSessionBegun(caller, callerType, type, ctx);
  return 1;
}

int CONVIFCam::HandleCancelSession() {
  OnSessionCancelled();
  RegisterIcomState(nullptr);
  return 1;
}

// ---- A door station's call ----

int CONVIFCam::InitiateCall(int /*button*/) {
  if (m_pOutboundCall != nullptr) return 0;
  CIntercomServer* const server = CIntercomServer::Instance();
  CIntercomClient* targets[CIntercomServer::MOST_CALL_TARGETS];
  const int count = server->LoadDefaultCallTargets(this, targets, CIntercomServer::MOST_CALL_TARGETS);
  if (count == 0) return 0;
  m_pOutboundCall = std::make_unique<COutboundCall>(targets, count, this);
  if (server->InitiateCall(this, targets, count, this, CALL_TYPE_TWO_WAY)) return 1;
  m_pOutboundCall.reset();  // nobody rings: the next press of the button is a new call
  return 0;
}

// The call is put aside first: whoever is told of its end may call back here.
int CONVIFCam::CancelCall(int /*button*/) {
  if (const std::unique_ptr<COutboundCall> call = std::move(m_pOutboundCall)) call->Cancel(this);
  return 1;
}

void CONVIFCam::CallAccepted(CIntercomClient* client, CIcomCallDelegate* /*delegate*/, CALL_TYPE /*type*/) {
  if (m_pOutboundCall == nullptr) return;
  m_pOutboundCall->Remove(client);
  CancelCall(0);
}

void CONVIFCam::CallDeclined(CIntercomClient* client) {
  if (m_pOutboundCall == nullptr) return;
  m_pOutboundCall->CallDeclined(client);
  if (m_pOutboundCall->NReceivers() > 0) return;
  m_pOutboundCall.reset();
  Trace("Call Declined by all targets, aborting call");
}

void CONVIFCam::EndLongRinging() {
  if (m_pOutboundCall != nullptr && m_pOutboundCall->SecondsElapsed() > RINGING_SECONDS) CancelCall(0);
}
