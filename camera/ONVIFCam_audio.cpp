// The camera's microphone: those who listen to it, and the thread that relays its sound to them.
#include "audio/audio_out.h"
#include "camera/ONVIFCam.h"
#include "host/intercom/audio_stream.h"
#include "host/intercom/rtsp_server.h"
#include "host/net/socket.h"
#include "rtsp/rtsp.h"
#include "util/rtp.h"

#include <algorithm>
#include <climits>

namespace {

constexpr int PACKET_BYTES = 2048;
constexpr int PACKET_TIMEOUT_MS = 5000;
constexpr unsigned RETRY_MS = 500;
constexpr int PORTS_OF_LISTENER = 2;
constexpr unsigned PAUSE_MS = 250;  // without packets

}  // namespace

// ---- Listeners ----

int CONVIFCam::HandleAudioStreamTargetAttach(CAudioStreamTarget* target, GXT_RTP_PATH_DESCRIPTOR* path,
                                             STREAM_CTX ctx) {
  HandleAudioStreamTargetDetach(target);  // its port, if it has listened already
  {
    const CGXLock lock(m_AudioLock);
    if (m_pAudioServer == nullptr) m_pAudioServer = std::make_unique<CRTSPServer>();
    if (!AddListener(target, path, ctx)) {
      EndWithoutListeners();
      return 0;
    }
    if (m_bAudioThread) return 1;
    m_bAudioThread = true;
  }
  // The one before has decided to end, and may still be on its way out.
  m_AudioThread.Join();
  if (m_AudioThread.Start(Audio_Proc, this, 0, "ONVIF Audio RTSP") != 0) return 1;
  {
    const CGXLock lock(m_AudioLock);
    m_bAudioThread = false;
  }
  HandleAudioStreamTargetDetach(target);
  return 0;
}

bool CONVIFCam::AddListener(CAudioStreamTarget* target, const GXT_RTP_PATH_DESCRIPTOR* path, STREAM_CTX ctx) {
  target->AudioSourcePort(0);  // of an earlier camera: not ours to free
  if (ctx != STREAM_CTX_DIRECT) return m_pAudioServer->AttachAudioClientSTUN(target, path) != 0;
  const unsigned short base = AllocRTSPPort(PORTS_OF_LISTENER);
  if (base == 0) return false;
  const auto port = static_cast<unsigned short>(base + AUDIO_TARGET_PORT_OFFSET);
  target->AudioSourcePort(port);
  if (m_pAudioServer->AttachAudioClientLOCAL(target, path,
                                             static_cast<unsigned short>(port + AUDIO_SOURCE_PORT_OFFSET)))
    return true;
  FreeRTSPPort(base);
  target->AudioSourcePort(0);
  return false;
}

int CONVIFCam::HandleAudioStreamTargetDetach(CAudioStreamTarget* target) {
  const CGXLock lock(m_AudioLock);
  if (m_pAudioServer == nullptr || !m_pAudioServer->DetachAudioClient(target)) return 0;
  const unsigned short port = target->AudioSourcePort();
  if (port != 0) FreeRTSPPort(static_cast<unsigned short>(port - AUDIO_TARGET_PORT_OFFSET));
  target->AudioSourcePort(0);
  EndWithoutListeners();
  return 1;
}

void CONVIFCam::EndWithoutListeners() {
  if (m_pAudioServer->NClients(RTSP_CLIENT_AUDIO) < 1) m_pAudioServer.reset();
}

// Of those who have not detached; they are not touched any more.
void CONVIFCam::DropListeners() {
  const CGXLock lock(m_AudioLock);
  if (m_pAudioServer == nullptr) return;
  for (int i = 0; CRTSPClient* const client = m_pAudioServer->Client(i); ++i)
    if (client->Port() != 0)
      FreeRTSPPort(
          static_cast<unsigned short>(client->Port() - AUDIO_SOURCE_PORT_OFFSET - AUDIO_TARGET_PORT_OFFSET));
  m_pAudioServer.reset();
}

// ---- The thread ----

unsigned CONVIFCam::Audio_Proc(void* camera) {
  static_cast<CONVIFCam*>(camera)->RunAudioThreadProc();
  return 0;
}

void CONVIFCam::RunAudioThreadProc() {
  while (!AudioThreadEnds()) {
    Trace("Starting AudioRTSP");
    if (!RunAudioRTSP()) Sleep(RETRY_MS);
    Trace("Ended AudioRTSP");
  }
  Trace("AudioRTSP Thread Exiting");
}

// Decided under the lock under which a listener decides whether to start it.
bool CONVIFCam::AudioThreadEnds() {
  const CGXLock lock(m_AudioLock);
  m_bAudioThread = m_pAudioServer != nullptr && !CGXThread::CurrentCancelled();
  return !m_bAudioThread;
}

bool CONVIFCam::AudioWanted() {
  const CGXLock lock(m_AudioLock);
  return m_pAudioServer != nullptr && !CGXThread::CurrentCancelled();
}

int CONVIFCam::RunAudioRTSP() {
  const auto failed = [this](const char* text) {
    Trace(text);
    return 0;
  };
  const CProfileRef profile = GetAudioProfile();
  if (profile == nullptr) return 0;
  CRTSP session(profile->StreamUri(), profile->ControlURLAudio(), RTP_TRANSPORT_UDP, UserName(), Password(), -1,
                nullptr, nullptr);
  CRTSPProfile rtsp;
  profile->ConfigureAudio(&rtsp);
  if (!session.Login()) return failed("RTSP Login Failed");
  if (!session.Init(&rtsp)) return failed("RTSP Init Failed");
  if (!session.InitSession()) return failed("RTSP InitSession Failed");
  unsigned char packet[PACKET_BYTES];
  while (AudioWanted()) {
    const int length = session.WaitNextPacket(packet, PACKET_BYTES, PACKET_TIMEOUT_MS);
    if (length < 1) {
      if (AudioWanted()) Trace("Audio RTSP Timeout");
      break;
    }
    RelayAudio(packet, length);
  }
  session.Stop();  // however it ends: small cameras allow one or two sessions only
  return 0;        // also in the end: a camera that is asked anew at once refuses
}

void CONVIFCam::RelayAudio(unsigned char* packet, int length) {
  const CGXLock lock(m_AudioLock);
  std::optional<int> level;
  if (m_pAudioOut != nullptr && m_pAudioOut->IsRunning()) {
    // What was queued while no microphone packet came has been played since.
    if (m_LevelAsked.GXTickCount() >= PAUSE_MS) m_pAudioOut->PopVolumeSample(INT_MAX);
    m_LevelAsked.Restart();
    level = m_pAudioOut->PopVolumeSample(std::max(length - RTP_HEADER_BYTES, 0));
  }
  if (m_AudioSquelch.Update(level)) CAudioSquelch::Silence(packet, length);
  if (m_pAudioServer == nullptr) return;
  for (int i = 0; i < m_pAudioServer->NClients(RTSP_CLIENT_ALL); ++i) {
    CRTSPClient* const client = m_pAudioServer->Client(i);
    if (client->CTX() == RTSP_CLIENT_AUDIO && client->ReadyForAudio()) client->SendPacket(packet, length);
  }
}
