#include "audio/vivotek_audio_out.h"

#include "audio/audio_camera.h"
#include "host/system/system.h"
#include "util/udp_socket.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstdint>

namespace {

// Local ports for the sound of direct clients: even ones, handed out in turn.
constexpr unsigned short FIRST_PORT = 8460, LAST_PORT = 8659;

constexpr unsigned RETRY_MS = 1000;
constexpr unsigned PATH_WAIT_MS = 60000;  // looked at anew after this; the path itself ends the wait

}  // namespace

CGXCritical CVivotek_AudioOut::g_PortLock;
unsigned short CVivotek_AudioOut::g_NextPort = FIRST_PORT;

CVivotek_AudioOut::CVivotek_AudioOut(CAudioCamera* camera, CIntercomClient* client)
    : CONVIF_AudioOut(camera, client), m_bRelayed(client->UsesRelay()), m_Packets(Identity()) {
  if (m_bRelayed)
    AttachRelayed(client);
  else
    AttachDirect(client);
  CIntercomServer::Instance()->RegisterSink(this);
  SendAudioHello();
}

CVivotek_AudioOut::~CVivotek_AudioOut() {
  CVivotek_AudioOut::Stop();
  m_Thread.Cancel();
  m_Thread.Join();
  CIntercomServer::Instance()->UnregisterSink(this);
  const CMainThreadLock hold;
  Detach();
}

unsigned short CVivotek_AudioOut::TakePort() {
  const CGXLock hold(g_PortLock);
  const unsigned short port = g_NextPort;
  g_NextPort = static_cast<unsigned short>(port + 2);
  if (g_NextPort > LAST_PORT) g_NextPort = FIRST_PORT;
  return port;
}

// A port that is taken leaves the socket at any: the camera and the relay answer to where a packet came from,
// but nothing arrives of a talker who sends to the port that he was told.
COwnedSocket CVivotek_AudioOut::BindUDP(int port) {
  COwnedSocket opened = CreateUDP();
  static_cast<void>(::BindUDP(opened, static_cast<unsigned short>(port)));
  return opened;
}

// The relay tells the path from within the attaching, or later.
void CVivotek_AudioOut::AttachRelayed(CIntercomClient* client) {
  GXT_RTP_PATH_DESCRIPTOR none{};
  CIntercomClient::AttachAudioStreamTarget(client, this, &none, STREAM_CTX_RELAYED);
}

void CVivotek_AudioOut::AttachDirect(CIntercomClient* client) {
  const unsigned short port = TakePort();
  GXT_RTP_PATH_DESCRIPTOR here{}, there{};
  {
    const CGXLock hold(m_SourceLock);
    m_AudioSource = BindUDP(port);
  }
  AudioSourcePort(port);
  Camera()->OwnIntercomClient()->AudioPathAt(port, &here);
  GXT_RTP_PATH_DESCRIPTOR attached = here;
  CIntercomClient::AttachAudioStreamTarget(client, this, &attached, STREAM_CTX_DIRECT);
  client->AudioPathAt(static_cast<unsigned short>(port + AUDIO_SOURCE_PORT_OFFSET), &there);
  const CGXLock hold(m_SourceLock);
  m_PathA = here;
  m_PathB = there;
}

void CVivotek_AudioOut::ProcessAudioSourceAddressInfo(GXT_RTP_PATH_DESCRIPTOR* path) {
  {
    const CGXLock hold(m_SourceLock);
    m_PathA = *path;
    if (!m_AudioSource.IsOpen()) m_AudioSource = BindUDP(0);
  }
  SendAudioHello();
  m_SourceChanged.SetEvent();
}

void CVivotek_AudioOut::SendAudioHello() {
  static constexpr unsigned char hello[RTP_HELLO_BYTES] = {};
  const CGXLock hold(m_SourceLock);
  if (m_AudioSource.IsOpen())
    STUN_SendPacket(m_AudioSource.Get(), hello, RTP_HELLO_BYTES, nullptr, &m_PathA, &m_PathB);
}

int CVivotek_AudioOut::AudioSource() {
  const CGXLock hold(m_SourceLock);
  return m_AudioSource.Get();
}

CIntercomClient* CVivotek_AudioOut::IntercomClient() {
  return Client();
}

void CVivotek_AudioOut::OnClientAdded(CIntercomClient*) {}

void CVivotek_AudioOut::OnClientRemoved(CIntercomClient* client) {
  if (client != Client()) return;
  Detach();
  Stop();
}

void CVivotek_AudioOut::OnClientState(CIntercomClient*, ICOM_CLIENT_STATE) {}

void CVivotek_AudioOut::Start() {
  if (!m_Thread.IsRunning()) m_Transcoder.Open();
  m_dwRunFlags |= RUNNING;
  if (m_Thread.Start(ThreadProc, this, 0, "AudioOut") == 0 && !m_Thread.IsRunning()) m_dwRunFlags &= ~RUNNING;
}

void CVivotek_AudioOut::Stop() {
  m_dwRunFlags &= ~RUNNING;
  m_SourceChanged.SetEvent();
}

bool CVivotek_AudioOut::IsRunning() {
  return (m_dwRunFlags & RUNNING) != 0;
}

void CVivotek_AudioOut::PushVolumeSample(int level, int samples) {
  m_Volume.Push(level, samples);
}

int CVivotek_AudioOut::PopVolumeSample(int samples) {
  return m_Volume.Pop(samples);
}

unsigned CVivotek_AudioOut::Identity() const {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(this));
}

unsigned CVivotek_AudioOut::ThreadProc(void* self) {
  static_cast<CVivotek_AudioOut*>(self)->Run();
  return 0;
}

// False when there is no sound to wait for: stopped, or no socket to be had.
bool CVivotek_AudioOut::AwaitSource() {
  while (m_bRelayed && IsRunning() && AudioSource() == -1) m_SourceChanged.WaitSignal(PATH_WAIT_MS);
  return IsRunning() && AudioSource() != -1;
}

void CVivotek_AudioOut::Run() {
  AwaitFarewell();
  while (AwaitSource())
    if (RunLoop() == 0 && IsRunning()) Sleep(RETRY_MS);
  m_dwRunFlags &= ~RUNNING;
  if (const CMainThreadLock hold; hold) Detach();
}

// Under the main-thread lock. Whoever comes first does it.
void CVivotek_AudioOut::Detach() {
  CIntercomClient* client = TakeClient();
  if (client != nullptr) CIntercomClient::DetachAudioStreamTarget(client, this);
}
