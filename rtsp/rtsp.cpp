#include "rtsp/rtsp.h"

#include "util/udp_socket.h"

#include <sys/socket.h>

#include <cerrno>

namespace {

// A camera in the house answers within milliseconds. This leaves time for three repetitions of a lost first
// packet (after 1, 3 and 7 s), where the system by itself would hold the thread for two minutes.
constexpr unsigned CONNECT_MS = 10000;

constexpr unsigned short FIRST_RTP_PORT = 3232;
constexpr int ASSERT_PORTS_EXHAUSTED = 767;

// A key picture arrives in one burst, while the system's default holds about 90 packets.
constexpr int RECEIVE_BUFFER_BYTES = 2 * 1024 * 1024;

// Beyond the system's limit where we may, up to it where not.
void EnlargeReceiveBuffer(const COwnedSocket& socket) {
  const int bytes = RECEIVE_BUFFER_BYTES;
  if (setsockopt(socket.Get(), SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
    setsockopt(socket.Get(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

}  // namespace

unsigned short CRTSP::g_wPorts[CPortTable::MOST];
int CRTSP::g_iNPorts = 0;
CPortTable CRTSP::g_PortTable(g_wPorts, g_iNPorts, FIRST_RTP_PORT, "rtsp", ASSERT_PORTS_EXHAUSTED);

CRTSP::CRTSP(CGXString url, CGXString trackUrl, RTP_TRANSPORT transport, CGXString user, CGXString password,
             int relaySocket, const GXT_RTP_PATH_DESCRIPTOR* pathA, const GXT_RTP_PATH_DESCRIPTOR* pathB)
    : m_URL(url),
      m_TrackURL(trackUrl),
      m_Transport(transport),
      m_User(user),
      m_Password(password),
      m_iRelaySocket(relaySocket) {
  if (pathA != nullptr) m_PathA = *pathA;
  if (pathB != nullptr) m_PathB = *pathB;
  if (m_iRelaySocket == -1) Connect(url);
}

CRTSP::~CRTSP() {
  m_RTP.Close();  // first: another session may take the port as soon as it is free
  m_RTCP.Close();
  ReleasePort();
}

void CRTSP::Connect(CGXString url) {
  url.TrimLeft("rtsp://");
  const int slash = url.Find('/');
  if (slash <= 0 || !ResolveAddress(url.Left(slash), &m_ServerAddress, RTSP_PORT)) {
    Fail(slash <= 0 ? "the camera names no usable stream address" : "the stream's host name is not known");
    return;
  }
  m_Source = m_ServerAddress.sin_addr;
  m_Control.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!m_Control.IsOpen()) {
    Fail("no socket could be opened");
  } else if (ConnectSocket(m_Control.Get(), &m_ServerAddress, CONNECT_MS) != 0) {
    Fail(errno == ECONNREFUSED ? "the camera's stream server refuses connections"
                               : "the camera's stream server cannot be reached");
    m_Control.Close();
  }
}

int CRTSP::Connected() const {
  return m_iRelaySocket != -1 || m_Control.IsOpen();
}

// The first reason is the cause of the others.
int CRTSP::Fail(const char* reason) {
  if (m_Failure.IsEmpty()) m_Failure = reason;
  return 0;
}

CGXString CRTSP::Failure() const {
  return m_Failure.IsEmpty() ? m_Refusal : m_Failure;
}

int CRTSP::Init(CRTSPProfile* profile) {
  if (m_iRelaySocket != -1) return 1;
  m_URL = profile->ControlURL();
  return m_Transport == RTP_TRANSPORT_UDP ? OpenPortPair() : 1;
}

int CRTSP::OpenPortPair() {
  m_RTCP.Close();
  ReleasePort();
  m_wLocalPort = GetRTPPort();
  m_bPortHeld = m_wLocalPort != 0;
  if (!m_bPortHeld)
    Fail("all 64 pairs of local ports for streams over UDP are in use; interleaved transport (TCP) needs none");
  m_RTP = CreateUDP();
  EnlargeReceiveBuffer(m_RTP);
  if (m_RTP.IsOpen() && !BindUDP(m_RTP, m_wLocalPort)) {
    m_RTP.Close();
    ReleasePort();
    return Fail("the local port for its packets is in use by another program");
  }
  if (m_RTP.IsOpen()) m_RTCP = CreateUDP();
  if (!m_RTCP.IsOpen()) {
    m_RTP.Close();
    ReleasePort();
    m_wLocalPort = 0;
    return Fail("no socket could be opened");
  }
  // Without its neighbour port the stream plays all the same, only without reports.
  BindUDP(m_RTCP, static_cast<unsigned short>(m_wLocalPort + 1));
  return 1;
}

void CRTSP::ReleasePort() {
  if (m_bPortHeld) FreeRTPPort(m_wLocalPort);
  m_bPortHeld = false;
}

unsigned short CRTSP::GetRTPPort() {
  return g_PortTable.Take();
}

void CRTSP::FreeRTPPort(unsigned short port) {
  g_PortTable.Free(port);
}

void CRTSP::LOGI(const char*, ...) const {}
void CRTSP::LOGE(const char*, ...) const {}
