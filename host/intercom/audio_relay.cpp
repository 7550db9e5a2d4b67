#include "host/intercom/audio_relay.h"

#include "host/net/socket.h"
#include "util/udp_socket.h"

#include <poll.h>
#include <sys/socket.h>

namespace {

constexpr size_t PACKET_BYTES = 2048;
constexpr unsigned STARTUP_PERIOD_MS = 200;  // below the period of hellos, above the time of a round trip

}  // namespace

bool CAudioRelay::CLeg::Open(unsigned address) {
  COwnedSocket opened = CreateUDPNoWait();
  if (!BindUDP(opened, 0, address)) return false;
  Socket = opened.Release();
  sockaddr_in own{};
  socklen_t size = sizeof own;
  if (getsockname(Socket, reinterpret_cast<sockaddr*>(&own), &size) != 0) return false;
  SetPathAddress(&Path, address, ntohs(own.sin_port));
  return true;
}

// Whether the packet counts. The first hello decides who is at the other end, so that nobody can take over.
bool CAudioRelay::CLeg::Takes(const sockaddr_in& sender, bool hello) {
  if (!Knows() && hello) Peer = sender;
  return Knows() && sender.sin_addr.s_addr == Peer.sin_addr.s_addr && sender.sin_port == Peer.sin_port;
}

void CAudioRelay::CLeg::Send(const unsigned char* data, size_t length) const {
  if (Knows())
    sendto(Socket, data, length, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&Peer), sizeof Peer);
}

void CAudioRelay::CLeg::SendStartup() {
  static constexpr unsigned char STARTUP[RTP_HELLO_BYTES] = {};
  if (NextStartup.Left() > 0) return;
  NextStartup = CGXDeadline(STARTUP_PERIOD_MS);
  Send(STARTUP, sizeof STARTUP);
}

CAudioRelay::CAudioRelay(unsigned address) {
  m_bWorks = m_Source.Open(address) && m_Listener.Open(address) &&
             m_Thread.Start(ThreadProc, this, 0, "Audio Relay") != 0;
}

CAudioRelay::~CAudioRelay() {
  m_Thread.Cancel();
  m_Thread.Join();
  CloseSocket(m_Source.Socket);
  CloseSocket(m_Listener.Socket);
}

unsigned CAudioRelay::ThreadProc(void* relay) {
  static_cast<CAudioRelay*>(relay)->Run();
  return 0;
}

void CAudioRelay::Run() {
  while (!CGXThread::CurrentCancelled()) {
    pollfd waits[] = {{m_Source.Socket, POLLIN, 0},
                      {m_Listener.Socket, POLLIN, 0},
                      {CGXThread::CurrentCancelDescriptor(), POLLIN, 0}};
    poll(waits, std::size(waits), -1);
    if (waits[0].revents != 0) Receive(&m_Source);
    if (waits[1].revents != 0) Receive(&m_Listener);
  }
}

void CAudioRelay::Receive(CLeg* leg) {
  unsigned char packet[PACKET_BYTES];
  sockaddr_in sender{};
  socklen_t size = sizeof sender;
  const ssize_t length =
      recvfrom(leg->Socket, packet, sizeof packet, 0, reinterpret_cast<sockaddr*>(&sender), &size);
  if (length <= 0) return;
  const bool hello = IsRTPHello(packet, static_cast<int>(length));
  if (!leg->Takes(sender, hello)) return;
  if (hello) {
    if (m_bFlows || !m_Source.Knows() || !m_Listener.Knows()) return;
    m_Source.SendStartup();
    m_Listener.SendStartup();
  } else if (leg == &m_Source) {
    m_bFlows = m_Listener.Knows();
    m_Listener.Send(packet, static_cast<size_t>(length));
  }
}
