// What a playing session does: receiving packets, keep-alives and reports.
#include "host/base/gxassert.h"
#include "rtsp/rtsp.h"
#include "util/bytes.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr unsigned KEEP_ALIVE_MS = 30000;
constexpr unsigned NEXT_BYTES_MS = 1000;  // least wait for the rest of a frame that has begun
constexpr unsigned WAIT_SLICE_MS = 100;   // after which a wait looks whether the thread is cancelled
constexpr unsigned FRAME_LIMIT_MS =
    10000;  // most that a frame which has begun may take beyond the caller's wait

constexpr int RTCP_BYTES = 1024;
constexpr int RECEIVER_REPORT = 201;
constexpr int RECEIVER_REPORT_BYTES = 32;

// A relayed path is opened by the first datagrams and then only kept open.
constexpr int RELAY_KEEP_ALIVE_BYTES = 16;
constexpr int RELAY_OPENING_DATAGRAMS = 10;
constexpr unsigned RELAY_OPENING_MS = 500;
constexpr unsigned RELAY_KEEP_ALIVE_MS = 5000;

unsigned RelayPeriod(int sent) {
  if (sent == 0) return 0;
  return sent < RELAY_OPENING_DATAGRAMS ? RELAY_OPENING_MS : RELAY_KEEP_ALIVE_MS;
}

}  // namespace

int CRTSP::WaitNextPacket(unsigned char* buffer, int size, int timeoutMs) {
  if (size <= 0) return 0;
  const unsigned wait = static_cast<unsigned>(std::max(timeoutMs, 0));
  if (m_iRelaySocket != -1) return WaitRelay(buffer, size, wait);
  switch (m_Transport) {
    case RTP_TRANSPORT_UDP:
      return WaitDatagram(buffer, size, wait);
    case RTP_TRANSPORT_TCP:
      return WaitInterleaved(buffer, size, wait);
  }
  return 0;
}

int CRTSP::WaitRelay(unsigned char* buffer, int size, unsigned timeoutMs) {
  if (m_RelayTimer.GXTickCount() > RelayPeriod(m_iRelayKeepAlives)) {
    static constexpr unsigned char zeros[RELAY_KEEP_ALIVE_BYTES] = {};
    STUN_SendPacket(m_iRelaySocket, zeros, RELAY_KEEP_ALIVE_BYTES, nullptr, &m_PathA, &m_PathB);
    ++m_iRelayKeepAlives;
    m_RelayTimer.Restart();
  }
  if (!WaitSocketReadState(m_iRelaySocket, timeoutMs)) return 0;
  return std::max(0, static_cast<int>(recv(m_iRelaySocket, buffer, static_cast<size_t>(size), MSG_DONTWAIT)));
}

// Duties come due every few seconds at most, so they are looked at before each wait and not for every packet.
int CRTSP::WaitDatagram(unsigned char* buffer, int size, unsigned timeoutMs) {
  if (m_Datagrams.IsEmpty()) {
    KeepSessionAlive();
    if (!m_RTP.IsOpen()) return 0;
    // Strangers' datagrams neither end the wait nor make it longer.
    const CGXTimer waited;
    do {
      const unsigned elapsed = waited.GXTickCount();
      if (!WaitSocketReadState(m_RTP.Get(), timeoutMs - std::min(elapsed, timeoutMs))) return 0;
    } while (!m_Datagrams.Receive(m_RTP.Get(), size, m_Source) && waited.GXTickCount() < timeoutMs);
    if (m_Datagrams.IsEmpty()) return 0;
  }
  return m_Datagrams.Take(buffer, size);
}

int CRTSP::WaitInterleaved(unsigned char* buffer, int size, unsigned timeoutMs) {
  int length = NextFrame(buffer, size);
  if (length >= 0) return length;
  KeepSessionAlive();

  const CGXTimer overall;
  CGXTimer resync;
  while (Fill(m_Framer.IsEmpty() || !m_Framer.InStep() ? timeoutMs : std::max(timeoutMs, NEXT_BYTES_MS))) {
    const bool wasInStep = m_Framer.InStep();
    length = NextFrame(buffer, size);
    if (length >= 0) return length;
    if (wasInStep) resync.Restart();
    if (!m_Framer.InStep() && resync.GXTickCount() > timeoutMs) return 0;
    if (overall.GXTickCount() > timeoutMs + (m_Framer.IsEmpty() ? 0 : FRAME_LIMIT_MS)) return 0;
  }
  return 0;
}

// The next frame of the RTP channel, out of what was received already: its length, or -1 when there is none.
int CRTSP::NextFrame(unsigned char* buffer, int size) {
  CInterleavedFramer::Frame frame;
  while (m_Framer.Next(static_cast<size_t>(size), &frame)) {
    const int length = static_cast<int>(frame.Data.size());
    if (frame.Channel == m_cChannel) {
      std::memcpy(buffer, frame.Data.data(), frame.Data.size());
      return length;
    }
    char text[64];
    std::snprintf(text, sizeof text, "Skipping %d bytes on index %d\n", length, frame.Channel);
    TraceWrap(text);
  }
  return -1;
}

// Receives once from the control connection; 0 when nothing came in time or the connection ended. It waits in
// recv itself, a slice at a time: half the system calls of asking first, and a cancelled thread still ends
// soon.
int CRTSP::Fill(unsigned timeoutMs) {
  if (!m_Control.IsOpen()) return 0;
  const std::span<unsigned char> room = m_Framer.Room();
  for (unsigned left = timeoutMs; !CGXThread::CurrentCancelled();) {
    const unsigned slice = std::min(left, WAIT_SLICE_MS);
    SetReceiveTimeout(slice);
    const ssize_t received = recv(m_Control.Get(), room.data(), room.size(), slice == 0 ? MSG_DONTWAIT : 0);
    if (received > 0) {
      m_Framer.Added(static_cast<size_t>(received));
      return 1;
    }
    if (received == 0 || (errno != EAGAIN && errno != EINTR)) return Fail("the camera has ended the stream");
    if (errno == EAGAIN) left -= slice;
    if (left == 0) return 0;
  }
  return 0;
}

void CRTSP::SetReceiveTimeout(unsigned milliseconds) {
  if (milliseconds == m_dwReceiveTimeout || milliseconds == 0) return;
  const timeval time{static_cast<time_t>(milliseconds / 1000),
                     static_cast<suseconds_t>(milliseconds % 1000 * 1000)};
  setsockopt(m_Control.Get(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
  m_dwReceiveTimeout = milliseconds;
}

int CRTSP::ReadTCP(unsigned char* buffer, int length, int timeoutMs) {
  const size_t wanted = static_cast<size_t>(std::max(length, 0));
  unsigned wait = static_cast<unsigned>(std::max(timeoutMs, 0));
  size_t held = m_Framer.Take(buffer, wanted);
  while (held < wanted) {
    if (!Fill(wait)) return 0;
    wait = std::max(wait, NEXT_BYTES_MS);
    held += m_Framer.Take(buffer + held, wanted - held);
  }
  return 1;
}

void CRTSP::KeepSessionAlive() {
  if (m_RTCP.IsOpen()) {
    unsigned char report[RTCP_BYTES];
    sockaddr_in sender{};
    socklen_t senderBytes = sizeof sender;
    const ssize_t length = recvfrom(m_RTCP.Get(), report, sizeof report, MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr*>(&sender), &senderBytes);
    if (length > 0 && sender.sin_addr.s_addr == m_Source.s_addr)
      ProcessSenderReport(report, static_cast<int>(length));
  }
  if (m_wRTCPInterval != 0 && m_RTCPTimer.GXTickCount() > m_wRTCPInterval) {
    SendReceiverReport();
    m_RTCPTimer.Restart();
  }
  if (m_KeepAliveTimer.GXTickCount() > KEEP_ALIVE_MS) {
    if (m_Transport == RTP_TRANSPORT_UDP) DrainControl();
    CGXString extra;
    extra.Format("Session: %s", m_SessionID);
    RTSPExchange(m_URL, "GET_PARAMETER", extra, nullptr, 0, 0);
    m_KeepAliveTimer.Restart();
  }
}

// Replies to earlier keep-alives, which nobody waits for: left there, they would block the camera after some
// days.
void CRTSP::DrainControl() {
  constexpr int MAX_READS = 64;
  char replies[1024];
  for (int i = 0; i < MAX_READS; ++i)
    if (recv(m_Control.Get(), replies, sizeof replies, MSG_DONTWAIT) < 1) return;
}

// Any packet on the RTCP port refreshes what is known of the sender.
void CRTSP::ProcessSenderReport(const unsigned char* packet, int length) {
  if (length >= 8) std::memcpy(m_SenderSSRC, packet + 4, sizeof m_SenderSSRC);
  if (length >= 14) std::memcpy(m_SenderTime, packet + 10, sizeof m_SenderTime);
}

// A minimal report: it tells the camera that somebody listens. The sender's time is left out, since cameras
// then do not compute a round trip from a report without delay.
int CRTSP::SendReceiverReport() {
  if (!m_RTCP.IsOpen()) return 0;
  unsigned char report[RECEIVER_REPORT_BYTES] = {0x81, RECEIVER_REPORT};
  WriteBE16(report + 2, RECEIVER_REPORT_BYTES / 4 - 1);
  const uint32_t identity = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this));
  std::memcpy(report + 4, &identity, sizeof identity);
  std::memcpy(report + 8, m_SenderSSRC, sizeof m_SenderSSRC);
  sockaddr_in target = m_ServerAddress;
  target.sin_port = htons(static_cast<unsigned short>(m_wServerPort + 1));
  return sendto(m_RTCP.Get(), report, sizeof report, MSG_NOSIGNAL | MSG_DONTWAIT,
                reinterpret_cast<const sockaddr*>(&target), sizeof target) == sizeof report;
}
