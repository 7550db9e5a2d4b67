#include "controller/panel/panel_ears.h"

#include "host/net/netinterface.h"
#include "host/net/socket.h"
#include "util/udp_socket.h"

#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace {

constexpr size_t PACKET_BYTES = 2048;
constexpr unsigned HELLO_PERIOD_MS = 250;  // until there is sound
constexpr unsigned HELLO_PERIOD_SOUND_MS = 5000;
constexpr unsigned WAIT_MS = 100;

int64_t NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

CPanelEars::CPanelEars(CIntercomClient* own, CIntercomClient* client, bool relayed, const std::string& wavPath,
                       std::shared_ptr<CTalkCounts> counts)
    : m_pClient(client), m_bRelayed(relayed || client->UsesRelay()), m_pCounts(std::move(counts)) {
  if (!Attach(own)) return;
  if (!wavPath.empty()) m_File.Open(wavPath, &m_Problem);
  if (m_Thread.Start(ThreadProc, this, 0, "Panel Ears") == 0) m_Problem = "the system gives no thread";
}

CPanelEars::~CPanelEars() {
  CIntercomClient::DetachAudioStreamTarget(m_pClient, this);
  m_Thread.Cancel();
  m_Thread.Join();
  CloseSocket(m_iSocket);
}

// A direct source chooses the port; one behind a relay is told its leg, or tells ours.
bool CPanelEars::Attach(CIntercomClient* own) {
  GXT_RTP_PATH_DESCRIPTOR path{};
  if (!m_bRelayed) {
    own->AudioPathAt(0, &path);
  } else if (!m_pClient->UsesRelay()) {
    m_pRelay = std::make_unique<CAudioRelay>(GetPrimaryIP());
    if (!m_pRelay->Works()) return false;
    path = m_pRelay->SourcePath();
    HelloTo(m_pRelay->ListenerPath());
  }
  if (!CIntercomClient::AttachAudioStreamTarget(m_pClient, this, &path,
                                                m_bRelayed ? STREAM_CTX_RELAYED : STREAM_CTX_DIRECT))
    return false;
  if (!m_bRelayed) {
    m_pClient->AudioPathAt(static_cast<unsigned short>(AudioSourcePort() + AUDIO_SOURCE_PORT_OFFSET), &path);
    HelloTo(path);
  }
  return OpenSocket();
}

bool CPanelEars::OpenSocket() {
  COwnedSocket opened = CreateUDPNoWait();
  if (!BindUDP(opened, AudioSourcePort())) return false;
  m_iSocket = opened.Release();
  return true;
}

void CPanelEars::HelloTo(const GXT_RTP_PATH_DESCRIPTOR& source) {
  const CGXLock hold(m_PathLock);
  m_Source = source;
}

unsigned CPanelEars::ThreadProc(void* ears) {
  static_cast<CPanelEars*>(ears)->Run();
  return 0;
}

void CPanelEars::Run() {
  while (!CGXThread::CurrentCancelled()) {
    SayHello();
    if (WaitSocketReadState(m_iSocket, WAIT_MS)) Receive();
  }
}

void CPanelEars::SayHello() {
  static constexpr unsigned char HELLO[RTP_HELLO_BYTES] = {};
  if (m_NextHello.Left() > 0) return;
  m_NextHello = CGXDeadline(m_Track.Counts().Packets == 0 ? HELLO_PERIOD_MS : HELLO_PERIOD_SOUND_MS);
  const CGXLock hold(m_PathLock);
  STUN_SendPacket(m_iSocket, HELLO, RTP_HELLO_BYTES, nullptr, &m_Source, nullptr);
}

void CPanelEars::Receive() {
  unsigned char packet[PACKET_BYTES];
  const ssize_t length = recv(m_iSocket, packet, sizeof packet, 0);
  if (length <= 0) return;
  const std::span<const short> samples = m_Track.Take({packet, static_cast<size_t>(length)}, NowMs());
  if (samples.empty()) return;
  Count();
  if (m_bMuted)
    m_File.Write(std::vector<short>(samples.size(), 0));
  else
    m_File.Write(samples);
}

// The talk's share of what all talks with this client add up to.
void CPanelEars::Count() {
  const CHeardCounts now = m_Track.Counts();
  m_pCounts->MicrophonePackets += now.Packets - m_Told.Packets;
  m_pCounts->Lost += now.Lost - m_Told.Lost;
  m_pCounts->LongestGapMs = std::max(m_pCounts->LongestGapMs.load(), now.LongestGapMs);
  m_Told = now;
}
