#include "controller/panel/panel_mouth.h"

#include "host/base/gxwait.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"

#include <algorithm>
#include <chrono>

using SoundClock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::milliseconds PERIOD{COpusPackets::PACKET_MS};
constexpr std::chrono::milliseconds MOST_BEHIND{200};  // is made up for; beyond, the time is left out
constexpr int PORTS_OF_LISTENER = 2;

void PauseUntil(SoundClock::time_point moment) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(moment - SoundClock::now()).count();
  if (left > 0) GXPause(CGXDeadline(static_cast<unsigned>(left)));
}

}  // namespace

CPanelMouth::~CPanelMouth() {
  m_Worker.Cancel();
  m_Worker.Join();
  const CGXLock hold(m_Lock);
  for (const auto& listener : m_Listeners) Close(listener.get());
}

void CPanelMouth::Say(CSpeech speech) {
  const CGXLock hold(m_Lock);
  m_Speech = std::move(speech);
}

// ---- Listeners ----

bool CPanelMouth::Attach(CAudioStreamTarget* target, GXT_RTP_PATH_DESCRIPTOR* path, STREAM_CTX ctx,
                         std::shared_ptr<CTalkCounts> counts) {
  Detach(target);
  auto listener = std::make_unique<CListener>();
  listener->Target = target;
  listener->Counts = std::move(counts);
  if (!Open(listener.get(), path, ctx)) {
    Close(listener.get());
    return false;
  }
  {
    const CGXLock hold(m_Lock);
    m_Listeners.push_back(std::move(listener));
  }
  return StartThread() || (Detach(target), false);
}

bool CPanelMouth::Open(CListener* listener, GXT_RTP_PATH_DESCRIPTOR* path, STREAM_CTX ctx) {
  if (ctx == STREAM_CTX_DIRECT) return OpenDirect(listener, path);
  sockaddr_in leg;
  if (GetPathAddress(path, &leg)) return OpenRelayed(listener, *path);
  listener->Relay = std::make_unique<CAudioRelay>(GetPrimaryIP());
  if (!listener->Relay->Works() || !OpenRelayed(listener, listener->Relay->SourcePath())) return false;
  GXT_RTP_PATH_DESCRIPTOR theirs = listener->Relay->ListenerPath();
  listener->Target->ProcessAudioSourceAddressInfo(&theirs);
  return true;
}

bool CPanelMouth::OpenDirect(CListener* listener, const GXT_RTP_PATH_DESCRIPTOR* path) {
  sockaddr_in peer;
  if (!GetPathAddress(path, &peer)) return false;
  unsigned short port = ntohs(peer.sin_port);
  if (port == 0) {
    listener->PortBase = m_pOwn->AllocRTSPPort(PORTS_OF_LISTENER);
    if (listener->PortBase == 0) return false;
    port = static_cast<unsigned short>(listener->PortBase + AUDIO_TARGET_PORT_OFFSET);
    listener->Target->AudioSourcePort(port);
  }
  return listener->Way.AttachAudioClientLOCAL(
             listener->Target, path, static_cast<unsigned short>(port + AUDIO_SOURCE_PORT_OFFSET)) != 0;
}

bool CPanelMouth::OpenRelayed(CListener* listener, GXT_RTP_PATH_DESCRIPTOR path) {
  return listener->Way.AttachAudioClientSTUN(listener->Target, &path) != 0;
}

void CPanelMouth::Close(CListener* listener) {
  if (listener->PortBase != 0) m_pOwn->FreeRTSPPort(listener->PortBase);
}

bool CPanelMouth::Detach(CAudioStreamTarget* target) {
  std::unique_ptr<CListener> gone;  // its relay's thread is joined without the lock
  const CGXLock hold(m_Lock);
  const auto found = std::ranges::find(m_Listeners, target, [](const auto& each) { return each->Target; });
  if (found == m_Listeners.end()) return false;
  gone = std::move(*found);
  m_Listeners.erase(found);
  Close(gone.get());
  return true;
}

// ---- The thread ----

bool CPanelMouth::StartThread() {
  {
    const CGXLock hold(m_Lock);
    if (!m_Worker.Claim(m_Lock)) return true;
  }
  return m_Worker.Start(ThreadProc, this, 0, "Panel Mouth") != 0;
}

unsigned CPanelMouth::ThreadProc(void* mouth) {
  static_cast<CPanelMouth*>(mouth)->Run();
  return 0;
}

void CPanelMouth::Run() {
  COpusPackets packets;
  auto next = SoundClock::now();
  while (Speak(&packets)) {
    next += PERIOD;
    if (SoundClock::now() - next > MOST_BEHIND) next = SoundClock::now();
    PauseUntil(next);
  }
}

// One packet to all. False when there is nobody left, or the thread is cancelled.
bool CPanelMouth::Speak(COpusPackets* packets) {
  const CGXLock hold(m_Lock);
  if (m_Listeners.empty() || CGXThread::CurrentCancelled()) {
    m_Worker.Release(m_Lock);
    return false;
  }
  short samples[COpusPackets::PACKET_SAMPLES];
  m_Speech.Next(samples);
  const std::span<const unsigned char> packet = packets->Next(samples);
  for (const auto& listener : m_Listeners) {
    CRTSPClient* const client = listener->Way.Client(0);
    if (!packet.empty() && client->ReadyForAudio() &&
        client->SendPacket(packet.data(), static_cast<int>(packet.size())) > 0)
      ++listener->Counts->SpeakerPackets;
  }
  return true;
}
