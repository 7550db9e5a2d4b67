#include "host/intercom/rtsp_server.h"

#include "host/intercom/audio_stream.h"
#include "host/net/socket.h"
#include "util/udp_socket.h"

#include <sys/socket.h>

#include <algorithm>

namespace {

constexpr unsigned HELLO_PERIOD_MS = 250;
constexpr int MOST_READ_AT_ONCE = 64;  // a flood must not hold up those who share the server

int OpenAudioSocket(unsigned short port) {
  COwnedSocket opened = CreateUDPNoWait();
  return BindUDP(opened, port) ? opened.Release() : -1;
}

}  // namespace

CRTSPClient::CRTSPClient(const CAudioStreamTarget* target, const GXT_RTP_PATH_DESCRIPTOR& path,
                         unsigned short port, bool relayed)
    : m_pTarget(target), m_Path(path), m_wPort(port), m_iSocket(OpenAudioSocket(port)), m_bReady(!relayed) {}

CRTSPClient::~CRTSPClient() {
  CloseSocket(m_iSocket);
}

bool CRTSPClient::ReadyForAudio() {
  if (!m_bReady) {
    ReadSocket();
    SayHello();
  }
  return m_bReady;
}

void CRTSPClient::SayHello() {
  static constexpr unsigned char HELLO[RTP_HELLO_BYTES] = {};
  if (m_NextHello.Left() > 0) return;
  m_NextHello = CGXDeadline(HELLO_PERIOD_MS);
  SendPacket(HELLO, RTP_HELLO_BYTES);
}

// The first startup packet opens the path for good; the hellos of a direct listener need no answer.
void CRTSPClient::ReadSocket() {
  sockaddr_in relay{};
  GetPathAddress(&m_Path, &relay);
  unsigned char packet[RTP_HELLO_BYTES + 1];
  sockaddr_in sender{};
  for (int i = 0; i < MOST_READ_AT_ONCE; ++i) {
    socklen_t size = sizeof sender;
    const ssize_t length =
        recvfrom(m_iSocket, packet, sizeof packet, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&sender), &size);
    if (length < 0) return;
    if (IsRTPHello(packet, static_cast<int>(length)) && sender.sin_addr.s_addr == relay.sin_addr.s_addr &&
        sender.sin_port == relay.sin_port)
      m_bReady = true;
    if (m_bReady) return;
  }
}

int CRTSPClient::SendPacket(const unsigned char* data, int length) {
  return STUN_SendPacket(m_iSocket, data, length, nullptr, &m_Path, nullptr);
}

CRTSPServer::CRTSPServer() = default;
CRTSPServer::~CRTSPServer() = default;

int CRTSPServer::NClients(int ctx) const {
  return static_cast<int>(std::count_if(m_Clients.begin(), m_Clients.end(), [ctx](const auto& client) {
    return ctx == RTSP_CLIENT_ALL || client->CTX() == ctx;
  }));
}

CRTSPClient* CRTSPServer::Client(int index) const {
  const auto i = static_cast<size_t>(index);
  return i < m_Clients.size() ? m_Clients[i].get() : nullptr;
}

int CRTSPServer::AttachAudioClientLOCAL(const CAudioStreamTarget* target, const GXT_RTP_PATH_DESCRIPTOR* path,
                                        unsigned short port) {
  sockaddr_in peer;
  if (target == nullptr || !GetPathAddress(path, &peer)) return 0;
  const unsigned short peerPort = peer.sin_port != 0 ? ntohs(peer.sin_port) : target->AudioSourcePort();
  if (peerPort == 0) return 0;
  GXT_RTP_PATH_DESCRIPTOR whole;
  SetPathAddress(&whole, peer.sin_addr.s_addr, peerPort);
  DetachAudioClient(target);  // it may hold the port
  return Add(std::unique_ptr<CRTSPClient>(new CRTSPClient(target, whole, port, false)));
}

int CRTSPServer::AttachAudioClientSTUN(const CAudioStreamTarget* target, const GXT_RTP_PATH_DESCRIPTOR* path) {
  sockaddr_in relay;
  if (target == nullptr || !GetPathAddress(path, &relay)) return 0;
  DetachAudioClient(target);
  return Add(std::unique_ptr<CRTSPClient>(new CRTSPClient(target, *path, 0, true)));
}

int CRTSPServer::Add(std::unique_ptr<CRTSPClient> client) {
  if (client->m_iSocket == -1) return 0;
  client->ReadyForAudio();
  m_Clients.push_back(std::move(client));
  return 1;
}

bool CRTSPServer::DetachAudioClient(const CAudioStreamTarget* target) {
  return std::erase_if(m_Clients, [target](const auto& client) { return client->m_pTarget == target; }) > 0;
}
