// Requests, their replies and the Digest answer.
#include "host/base/gxassert.h"
#include "host/net/md5.h"
#include "rtsp/reply_reader.h"
#include "rtsp/rtsp.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr const char* USER_AGENT = "User-Agent: NORVA RTP Client";
constexpr const char* CHALLENGE = "WWW-Authenticate:";
constexpr int REQUEST_BYTES = 1024;
constexpr unsigned SEND_MS = 0;  // a camera that does not read its requests must not hold the stream's thread
constexpr unsigned FIRST_REPLY_MS = 5000;  // until a reply begins
constexpr unsigned NEXT_REPLY_MS = 1000;   // between its pieces
constexpr unsigned EXCHANGE_MS = 20000;    // altogether, for a camera that sends a byte now and then

constexpr int ASSERT_HEADER_CUT = 701;
constexpr int ASSERT_PARAMETER_CUT = 728;

using Value = char[RTSP_VALUE_CHARS + 1];

// Copies what fits into a Value. An uncut one is filled up with zeros to RTSP_VALUE_CHARS.
void CopyValue(const char* value, size_t length, int assertSite, char* out) {
  std::memset(out, 0, RTSP_VALUE_CHARS);
  if (length >= RTSP_VALUE_CHARS) {
    AssertWrap("rtsp", assertSite);
    length = RTSP_VALUE_CHARS;
    out[length] = 0;
  }
  std::memcpy(out, value, length);
}

// The number behind `key`; `fallback` when the key is absent.
int NumberAfter(const char* text, const char* key, int fallback) {
  const char* const at = std::strstr(text, key);
  return at != nullptr ? static_cast<int>(std::strtol(at + std::strlen(key), nullptr, 10)) : fallback;
}

// The challenge to answer. Cameras that offer Basic too may name it first: the one with a nonce is meant.
void FindChallenge(const char* reply, char* challenge) {
  Value next, nonce;
  CRTSP::Extract(reply, CHALLENGE, challenge);
  while (!CRTSP::ExtractParam(challenge, "nonce", nonce)) {
    const char* const at = std::strstr(reply, CHALLENGE);
    if (at == nullptr || !CRTSP::Extract(reply = at + std::strlen(CHALLENGE), CHALLENGE, next)) return;
    std::memcpy(challenge, next, sizeof next);
  }
}

}  // namespace

int CRTSP::Extract(const char* text, const char* key, char* out) {
  const char* at = std::strstr(text, key);
  CopyValue("", 0, ASSERT_HEADER_CUT, out);
  if (at == nullptr) return 0;
  at += std::strlen(key);
  CopyValue(at, std::strcspn(at, "\r\n"), ASSERT_HEADER_CUT, out);
  return 1;
}

int CRTSP::ExtractParam(const char* text, const char* key, char* out) {
  const char* const at = std::strstr(text, key);
  const char* const open = at != nullptr ? std::strchr(at + std::strlen(key), '"') : nullptr;
  const char* const close = open != nullptr ? std::strchr(open + 1, '"') : nullptr;
  CopyValue("", 0, ASSERT_PARAMETER_CUT, out);
  if (close == nullptr) return 0;
  CopyValue(open + 1, static_cast<size_t>(close - open - 1), ASSERT_PARAMETER_CUT, out);
  return 1;
}

void CRTSP::MakeMD5String(const char* text, char* out) const {
  CMD5 md5;
  md5.update(reinterpret_cast<const unsigned char*>(text), static_cast<unsigned>(std::strlen(text)));
  md5.finalize();
  for (int i = 0; i < 16; ++i) std::snprintf(out + i * 2, 3, "%02x", md5.raw_digest()[i]);
}

int CRTSP::SendRequest(const char* url, const char* method, const char* extraHeaders) {
  // URLs come from cameras: one that holds a line end could add lines of its own to the request.
  for (const char* p = url; *p != 0; ++p)
    if (static_cast<unsigned char>(*p) < ' ') return 0;
  const bool extra = extraHeaders != nullptr && extraHeaders[0] != 0;
  char request[REQUEST_BYTES];
  const int length =
      std::snprintf(request, sizeof request, "%s %s RTSP/1.0\r\nCSeq: %d\r\n%s\r\n%s%s\r\n", method, url,
                    m_iCSeq, USER_AGENT, extra ? extraHeaders : "", extra ? "\r\n" : "");
  if (length < 0 || length >= REQUEST_BYTES) {
    LOGE("%s request too long (%d)", method, length);
    return 0;
  }
  if (SendSocket(m_Control.Get(), request, length, SEND_MS) != length) {
    m_Control.Close();
    return Fail("the camera's stream server has closed the connection");
  }
  ++m_iCSeq;
  return 1;
}

int CRTSP::RTSPExchange(const char* url, const char* method, const char* extraHeaders, char* reply,
                        int replySize, int isRetry) {
  if (!SendRequest(url, method, extraHeaders)) return 0;
  if (reply == nullptr) return 1;

  const bool streamFollows = m_Transport == RTP_TRANSPORT_TCP && std::strcmp(method, "PLAY") == 0;
  CReplyReader reader(reply, replySize, m_bBodyUnread, streamFollows ? &m_Framer : nullptr);
  const Reply result = ReadReply(reader);
  m_bBodyUnread = reader.BodyUnread();
  if (result == Reply::READ) TakeStatus(method, std::string(reader.Text().substr(0, 128)).c_str());
  if (result != Reply::UNAUTHORIZED) return result == Reply::READ;
  if (isRetry) {
    LOGE("Error Bad Authorization");
    return Fail("the camera's stream server refuses the login; check user name and password");
  }
  CGXString extra(extraHeaders);
  if (!extra.IsEmpty()) extra += "\r\n";
  extra += DigestAnswer(reader.Text(), method, url);
  return RTSPExchange(url, method, extra, reply, replySize, 1);
}

CRTSP::Reply CRTSP::ReadReply(CReplyReader& reader) {
  const CGXTimer exchange;
  unsigned wait = FIRST_REPLY_MS;
  auto state = CReplyReader::State::MORE;
  while (exchange.GXTickCount() < EXCHANGE_MS && WaitSocketReadState(m_Control.Get(), wait)) {
    const std::span<char> room = reader.Room();
    const ssize_t received = room.empty() ? 0 : recv(m_Control.Get(), room.data(), room.size(), 0);
    if (received < 1) {
      LOGE(state == CReplyReader::State::BODY ? "Timeout waiting for content (%d)"
                                              : "Error Reading from Socket (%d)",
           NORVA_GetLastError());
      Fail("the camera's stream server has closed the connection");
      return Reply::FAILED;
    }
    state = reader.Added(static_cast<size_t>(received));
    if (reader.Begun()) wait = NEXT_REPLY_MS;
    if (state == CReplyReader::State::COMPLETE) return Reply::READ;
    if (state == CReplyReader::State::UNAUTHORIZED) return Reply::UNAUTHORIZED;
  }
  // A reply that stops in the middle is taken as far as it came: some cameras announce more than they send.
  if (reader.Begun() && !reader.Text().empty()) return Reply::READ;
  LOGE("No Bytes Received");
  Fail("the camera's stream server does not answer");
  return Reply::FAILED;
}

CGXString CRTSP::DigestAnswer(std::string_view reply, const char* method, const char* url) const {
  Value challenge, realm, nonce;
  FindChallenge(std::string(reply).c_str(), challenge);
  ExtractParam(challenge, "realm", realm);
  ExtractParam(challenge, "nonce", nonce);

  char user[33], request[33], response[33];
  CGXString text;
  text.Format("%s:%s:%s", static_cast<const char*>(m_User), realm, static_cast<const char*>(m_Password));
  MakeMD5String(text, user);
  text.Format("%s:%s", method, url);
  MakeMD5String(text, request);
  text.Format("%s:%s:%s", user, nonce, request);
  MakeMD5String(text, response);

  text.Format("Authorization: Digest username=\"%s\", realm=\"%s\", nonce=\"%s\", uri=\"%s\", response=\"%s\"",
              static_cast<const char*>(m_User), realm, nonce, url, response);
  return text;
}

// Any reply will do, whatever its status: there are cameras that refuse OPTIONS, or describe their stream to
// nobody here, and play it all the same. One that does not is noticed by the packets that do not come.
int CRTSP::Login() {
  if (m_iRelaySocket != -1) return 1;
  char reply[RTSP_REPLY_BYTES + 1] = {};
  if (!RTSPExchange(m_URL, "OPTIONS", "", reply, RTSP_REPLY_BYTES, 0)) {
    LOGE("OPTIONS FAILED: %s", reply);
    return 0;
  }
  if (!RTSPExchange(m_URL, "DESCRIBE", "", reply, RTSP_REPLY_BYTES, 0)) {
    LOGE("DESCRIBE FAILED: %s", reply);
    return 0;
  }
  LOGI("LOGIN OK");
  return 1;
}

int CRTSP::InitSession() {
  if (m_iRelaySocket != -1) return 1;
  switch (m_Transport) {
    case RTP_TRANSPORT_UDP:
      return SetupUDP();
    case RTP_TRANSPORT_TCP:
      return SetupTCP();
  }
  return 0;
}

int CRTSP::SetupUDP() {
  LOGI("InitSession:UDP");
  char reply[RTSP_REPLY_BYTES + 1] = {};
  CGXString extra;
  extra.Format("Transport: RTP/AVP;unicast;client_port=%d-%d", m_wLocalPort, m_wLocalPort + 1);
  if (!RTSPExchange(m_TrackURL, "SETUP", extra, reply, RTSP_REPLY_BYTES, 0)) {
    LOGE("RTSPExchange(SETUP) Failed:\n%s", reply);
    return 0;
  }
  Value transport, session;
  Extract(reply, "Transport", transport);
  TakeServerPort(transport);
  // Not looked at further: cameras that serve one client over UDP may give no id, and play without one.
  Extract(reply, "Session:", session);
  TakeSessionID(session);
  extra.Format("Session: %s\r\nRange: npt=0.000-", m_SessionID);
  return Play(extra);
}

int CRTSP::SetupTCP() {
  LOGI("InitSession:TCP");
  char reply[RTSP_REPLY_BYTES + 1] = {};
  // The status is not looked at beyond this: a camera that refused sends nothing, and the stream ends for that.
  if (!RTSPExchange(m_TrackURL, "SETUP", "Transport: RTP/AVP/TCP;unicast;interleaved=0-1", reply,
                    RTSP_REPLY_BYTES, 0)) {
    LOGE("RTSPExchange(SETUP) Failed:\n%s", reply);
    return 0;
  }
  LOGI("Got SETUP");
  if (std::strstr(reply, "Service Unavailable") != nullptr) {
    LOGE("Service Not Available");
    return Fail("the camera has no room for another session (Service Unavailable)");
  }
  Value transport, session;
  Extract(reply, "Transport", transport);
  TakeServerPort(transport);
  LOGI("RR Port %d", m_wServerPort);
  m_cChannel = static_cast<unsigned char>(NumberAfter(transport, "interleaved=", 0));
  LOGI("Interleave %d", m_cChannel);
  if (!Extract(reply, "Session:", session)) {
    LOGE("ERROR: No Session ID: %s", reply);
    return FailedSetup();
  }
  if (session[0] == 0) {
    LOGE("Bad SessionID");
    return FailedSetup();
  }
  LOGI("Found Session ID %s", session);
  TakeSessionID(session);
  LOGI("Session ID %s", m_SessionID);
  // No Range here: cameras were found that refuse one on an interleaved session of live pictures.
  CGXString extra;
  extra.Format("Session: %s", m_SessionID);
  LOGI("Calling Play...");
  return Play(extra);
}

// Without a session: because the camera refused, or although it agreed.
int CRTSP::FailedSetup() {
  return m_Refusal.IsEmpty() ? Fail("the camera has agreed, but named no session") : 0;
}

// Replies to OPTIONS tell nothing of the stream. A refused SETUP is the cause of a refused PLAY.
void CRTSP::TakeStatus(const char* method, const char* reply) {
  const std::string_view name = method;
  if (name == "OPTIONS" || (m_bSetupRefused && name != "SETUP")) return;
  constexpr int WORDS = 40;
  int status = 0;
  char words[WORDS + 1] = {};
  if (std::sscanf(reply, "RTSP/%*d.%*d %d %40[ -~]", &status, words) < 1) return;
  m_Refusal = CGXString();
  if (status < 300) return;
  m_bSetupRefused = name == "SETUP";
  m_Refusal.Format("the camera refused %s (%d%s%s)", method, status, words[0] != 0 ? " " : "", words);
}

void CRTSP::TakeServerPort(const char* transportHeader) {
  m_wServerPort = static_cast<unsigned short>(NumberAfter(transportHeader, "server_port=", m_wServerPort));
  const char* const source = std::strstr(transportHeader, "source=");
  if (source == nullptr) return;
  const std::string_view text = source + std::strlen("source=");
  in_addr address{};
  if (inet_pton(AF_INET, std::string(text.substr(0, text.find_first_of(";, "))).c_str(), &address) == 1)
    m_Source = address;
}

// The id ends at its first parameter. The blank before it stays: sessions have always been named with two
// blanks.
void CRTSP::TakeSessionID(const char* sessionHeader) {
  const size_t length = std::strcspn(sessionHeader, ";");
  std::memcpy(m_SessionID, sessionHeader, length);
  m_SessionID[length] = 0;
}

int CRTSP::Play(const char* extraHeaders) {
  char reply[RTSP_REPLY_BYTES + 1] = {};
  if (!RTSPExchange(m_URL, "PLAY", extraHeaders, reply, RTSP_REPLY_BYTES, 0)) {
    LOGE("RTSPExchange(PLAY) Failed:\n%s", reply);
    return 0;
  }
  m_wRTCPInterval = static_cast<unsigned short>(NumberAfter(reply, "RTCP-Interval:", 0));
  return 1;
}

void CRTSP::Stop() {
  if (m_iRelaySocket != -1) return;
  CGXString extra;
  extra.Format("Session: %s", m_SessionID);
  RTSPExchange(m_URL, "TEARDOWN", extra, nullptr, 0, 0);
}
