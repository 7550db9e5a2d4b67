// One RTSP session with a camera (RFC 2326): log in, set up one track over UDP or interleaved TCP, play it,
// keep it alive and receive its RTP packets.
//
// One thread uses a session: the one that creates it. Every operation that waits ends early on a cancelled
// CGXThread. Results are non-zero for success and 0 for failure; after a failure the caller abandons the
// session.
#pragma once

#include "host/base/gxthread.h"
#include "host/net/port_table.h"
#include "host/net/socket.h"
#include "host/video/rtsp_profile.h"
#include "rtsp/datagram_ring.h"
#include "rtsp/interleaved_framer.h"
#include "util/gxtimer.h"
#include "util/owned_socket.h"

#include <string_view>

inline constexpr unsigned short RTSP_PORT = 554;
inline constexpr int RTSP_REPLY_BYTES = 1024;  // of the session's own exchanges
inline constexpr int RTSP_VALUE_CHARS = 128;   // longest header value that is kept

class CRTSP {
 public:
  // `url` is what OPTIONS and DESCRIBE name, `trackUrl` what SETUP names. With `relaySocket` -1 it connects to
  // the host in `url`, waiting at most CONNECT_MS; the result is told by Connected(). Otherwise the session
  // does no RTSP: it only receives from that socket, which stays the caller's, and sends keep-alive datagrams
  // along the two paths (copied; null: zeros).
  CRTSP(CGXString url, CGXString trackUrl, RTP_TRANSPORT transport, CGXString user, CGXString password,
        int relaySocket, const GXT_RTP_PATH_DESCRIPTOR* pathA, const GXT_RTP_PATH_DESCRIPTOR* pathB);
  virtual ~CRTSP();  // closes without TEARDOWN (see Stop) and gives the local port back
  CRTSP(const CRTSP&) = delete;
  CRTSP& operator=(const CRTSP&) = delete;

  int Connected() const;  // non-zero with a control connection or a relay socket

  // Why this session failed, or why no packet may have come: in plain words that stand behind a colon. Empty
  // when nothing is known. A refused request is one, although the session goes on after it.
  CGXString Failure() const;

  int Init(CRTSPProfile* profile);  // takes the profile's ControlURL(); UDP: opens the local port pair
  int Login();                      // OPTIONS and DESCRIBE
  int InitSession();                // SETUP and PLAY
  void Stop();                      // TEARDOWN; waits for no reply

  // The next RTP packet of the track, cut to `size` bytes, waiting `timeoutMs` for it: its length; 0 when none
  // came or the stream ended. Sends keep-alives and receiver reports as they fall due.
  int WaitNextPacket(unsigned char* buffer, int size, int timeoutMs);

  // One request and its reply; repeated once with a Digest answer (RFC 2617) when the camera demands one.
  // `extraHeaders`: lines joined by CR LF, without the last line end; null or empty: none. `reply` null: do not
  // wait for one. A reply that fills `replySize` bytes has no terminating NUL, a longer body is cut. The status
  // is the caller's to read. `isRetry` non-zero: do not answer a challenge.
  int RTSPExchange(const char* url, const char* method, const char* extraHeaders, char* reply, int replySize,
                   int isRetry);

  // What follows `key` on its line, leading blank included; `key` is found anywhere, letter case counts. `out`
  // holds RTSP_VALUE_CHARS + 1 bytes: a longer value is cut, and reported as an assertion. 0 and empty when
  // absent.
  static int Extract(const char* text, const char* key, char* out);
  // The same for what stands between the next two double quotes after `key`.
  static int ExtractParam(const char* text, const char* key, char* out);

  // Exactly `length` bytes of the control connection. Waits `timeoutMs` for the first bytes and at least a
  // second for any further ones.
  int ReadTCP(unsigned char* buffer, int length, int timeoutMs);

  // Local ports of all sessions: an even port, its odd neighbour belongs to it. 0 when all are in use.
  static unsigned short GetRTPPort();
  static void FreeRTPPort(unsigned short port);

  void ProcessSenderReport(const unsigned char* packet, int length);  // RTCP, RFC 3550 6.4.1
  int SendReceiverReport();                                           // RTCP, RFC 3550 6.4.2

  // MD5 of the text as 32 lower-case hexadecimal digits and a NUL.
  void MakeMD5String(const char* text, char* out) const;

  // Where a build that looks into sessions hangs its log. This one discards the text.
  void LOGI(const char* format, ...) const __attribute__((format(printf, 2, 3)));
  void LOGE(const char* format, ...) const __attribute__((format(printf, 2, 3)));

 private:
  int Fail(const char* reason);
  void TakeStatus(const char* method, const char* reply);
  void Connect(CGXString url);
  int OpenPortPair();
  void ReleasePort();

  int SendRequest(const char* url, const char* method, const char* extraHeaders);
  enum class Reply { FAILED, READ, UNAUTHORIZED };
  Reply ReadReply(class CReplyReader& reader);
  CGXString DigestAnswer(std::string_view reply, const char* method, const char* url) const;
  int SetupUDP();
  int SetupTCP();
  int Play(const char* extraHeaders);
  int FailedSetup();
  void TakeServerPort(const char* transportHeader);
  void TakeSessionID(const char* sessionHeader);

  int WaitRelay(unsigned char* buffer, int size, unsigned timeoutMs);
  int WaitDatagram(unsigned char* buffer, int size, unsigned timeoutMs);
  int WaitInterleaved(unsigned char* buffer, int size, unsigned timeoutMs);
  int NextFrame(unsigned char* buffer, int size);
  int Fill(unsigned timeoutMs);
  void SetReceiveTimeout(unsigned milliseconds);
  void KeepSessionAlive();
  void DrainControl();

  // The connection.
  sockaddr_in m_ServerAddress{};
  in_addr m_Source{};  // where its packets come from: the server, unless it names another address
  COwnedSocket m_Control, m_RTP, m_RTCP;
  unsigned short m_wLocalPort = 0;  // host order; RTCP uses the next one
  bool m_bPortHeld = false;         // whether m_wLocalPort is still ours in the registry

  // The session.
  CGXString m_URL, m_TrackURL;
  int m_iCSeq = 2;  // cameras in the field were accepted with this first number
  RTP_TRANSPORT m_Transport;
  char m_SessionID[RTSP_VALUE_CHARS + 1] = {};  // with the blank that stood before it
  CGXString m_User, m_Password;
  bool m_bBodyUnread = false;  // the rest of a reply's body is still to come

  // What went wrong.
  CGXString m_Failure, m_Refusal;
  bool m_bSetupRefused = false;

  // The relay.
  int m_iRelaySocket;
  GXT_RTP_PATH_DESCRIPTOR m_PathA{}, m_PathB{};
  int m_iRelayKeepAlives = 0;
  CGXTimer m_RelayTimer;

  // While playing.
  CGXTimer m_KeepAliveTimer;
  unsigned short m_wServerPort = 0;    // host order; 0 until known
  unsigned short m_wRTCPInterval = 0;  // ms; 0: no receiver reports
  CGXTimer m_RTCPTimer;
  unsigned char m_SenderTime[4] = {};  // middle of the NTP time of the last sender report, as received
  unsigned char m_SenderSSRC[4] = {};  // as received
  unsigned char m_cChannel = 0;        // interleaved channel of RTP
  unsigned m_dwReceiveTimeout = 0;     // ms, of m_Control; 0: none set
  CInterleavedFramer m_Framer;         // what the control connection has delivered and nobody has taken yet
  CDatagramRing m_Datagrams;           // what the RTP socket has delivered and nobody has taken yet

  static unsigned short g_wPorts[CPortTable::MOST];  // in use, through the table only, like their count
  static int g_iNPorts;
  static CPortTable g_PortTable;
};
