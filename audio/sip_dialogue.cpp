#include "audio/sip_dialogue.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int CALL_ID_CHARS = 16, TAG_CHARS = 8, BRANCH_CHARS = 16, SESSION_ID_DIGITS = 16;
constexpr std::string_view LINE_END = "\r\n", TO = "To:";

CGXString RandomText(int length, std::string_view alphabet) {
  std::string text;
  for (int i = 0; i < length; ++i) text += alphabet[static_cast<size_t>(rand()) % alphabet.size()];
  return text;
}

std::string_view LineAt(std::string_view text, size_t position) {
  const std::string_view rest = text.substr(position);
  return rest.substr(0, rest.find_first_of(LINE_END));
}

// The headers of an INFO request that its answers repeat.
struct CInfoHeaders {
  explicit CInfoHeaders(const char* request)
      : To(CSIPMessage::Extract("To:", request)),
        From(CSIPMessage::Extract("From:", request)),
        Via(CSIPMessage::Extract("Via:", request)),
        CallID(CSIPMessage::Extract("Call-ID:", request)),
        CSeq(CSIPMessage::Extract("CSeq:", request)) {}
  const CGXString To, From, Via, CallID, CSeq;
};

}  // namespace

CSIPDialogue::CSIPDialogue(const CGXString& serialNo, const CGXString& cameraAddress,
                           const CGXString& systemAddress, int localPort)
    : m_SystemAddress(systemAddress), m_iLocalPort(localPort) {
  m_CameraURI.Format("sip:%s@%s:%d", serialNo.Str().c_str(), cameraAddress.Str().c_str(), SIP_PORT);
  m_SystemURI.Format("sip:norva_system@%s:%d", systemAddress.Str().c_str(), localPort);
  Renew();
}

void CSIPDialogue::Renew() {
  m_CallID.Format("%s@%s", CSIPMessage::RandomString(CALL_ID_CHARS).Str().c_str(),
                  m_SystemAddress.Str().c_str());
  m_FromTag = CSIPMessage::RandomString(TAG_CHARS);
  m_Via.Format("SIP/2.0/UDP %s:%d;branch=%s;rport", m_SystemAddress.Str().c_str(), m_iLocalPort,
               CSIPMessage::RandomString(BRANCH_CHARS).Str().c_str());
  m_ToTag.Empty();
}

CGXString CSIPDialogue::Request(const char* method, int cseq, const CGXString& body) const {
  CGXString parties, rest, request;
  parties.Format("%s %s SIP/2.0\r\nTo: <%s>%s\r\nFrom: <%s>;tag=%s\r\nVia: %s\r\nCall-ID: %s\r\n", method,
                 m_CameraURI.Str().c_str(), m_CameraURI.Str().c_str(), m_ToTag.Str().c_str(),
                 m_SystemURI.Str().c_str(), m_FromTag.Str().c_str(), m_Via.Str().c_str(),
                 m_CallID.Str().c_str());
  rest.Format("CSeq: %d %s\r\nMax-Forwards: 70\r\n", cseq, method);
  if (std::strcmp(method, "ACK") == 0) {
    request = parties + rest;
  } else {
    CGXString contact;
    contact.Format("Contact: <%s>\r\n", m_SystemURI.Str().c_str());
    // The type is named even when there is no body: the cameras expect it in every request of a call.
    request = parties + contact + rest + "Content-Type: application/sdp\r\n";
  }
  CGXString end;
  end.Format("Content-Length: %d\r\n\r\n%s", body.GetLength(), body.Str().c_str());
  return request + end;
}

CGXString CSIPDialogue::SessionDescription(unsigned identity, int rtpPort) const {
  CGXString text;
  text.Format(
      "v=0\r\no=SIP %u 0 IN IP4 %s\r\ns=SIPUA\r\nc=IN IP4 %s\r\nt=0 0\r\na=x-session-id:%s\r\n"
      "m=audio %d RTP/AVP 0\r\nb=AS:64\r\na=rtpmap:0 pcmu/8000\r\na=sendonly\r\n",
      identity, m_SystemAddress.Str().c_str(), m_SystemAddress.Str().c_str(),
      RandomText(SESSION_ID_DIGITS, "0123456789").Str().c_str(), rtpPort);
  return text;
}

CGXString CSIPMessage::Extract(const char* key, const char* text) {
  const char* found = std::strstr(text, key);
  if (found == nullptr) return {};
  found += std::strlen(key);
  found += std::strspn(found, " \t");
  return CGXString(found, static_cast<int>(std::strcspn(found, LINE_END.data())));
}

CGXString CSIPMessage::ToTag(std::string_view text) {
  const size_t to = text.find(TO);
  if (to == std::string_view::npos) return {};
  const std::string_view line = LineAt(text, to);
  return CGXString(line.substr(std::min(line.find(';'), line.size())));
}

CGXString CSIPMessage::RandomString(int length) {
  return RandomText(length, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789");
}

CGXString CSIPMessage::InfoAnswer(const char* request, const CGXString& contact) {
  const CInfoHeaders headers(request);
  CGXString text;
  text.Format(
      "SIP/2.0 200 OK\r\nTo: %s\r\nFrom: %s\r\nVia: %s\r\nCall-ID: %s\r\nContact: <%s>\r\nCSeq: %s\r\n"
      "Max-Forwards: 70\r\nContent-Length: 0\r\n\r\n",
      headers.To.Str().c_str(), headers.From.Str().c_str(), headers.Via.Str().c_str(),
      headers.CallID.Str().c_str(), contact.Str().c_str(), headers.CSeq.Str().c_str());
  return text;
}

CGXString CSIPMessage::InfoRequest(const char* request, const CGXString& uri) {
  const CInfoHeaders headers(request);
  CGXString text;
  text.Format(
      "INFO %s SIP/2.0\r\nTo: %s\r\nFrom: %s\r\nVia: %s\r\nCall-ID: %s\r\nCSeq: %s\r\nMax-Forwards: 70\r\n"
      "Content-Length: 0\r\n\r\n",
      uri.Str().c_str(), headers.To.Str().c_str(), headers.From.Str().c_str(), headers.Via.Str().c_str(),
      headers.CallID.Str().c_str(), headers.CSeq.Str().c_str());
  return text;
}

unsigned CInviteAnswer::Added(size_t bytes) {
  m_nHeld += bytes;
  const std::string_view message(m_Buffer, m_nHeld);
  const bool complete = message.find(CSIPMessage::END_OF_HEADER) != std::string_view::npos;
  if (!complete && m_nHeld < sizeof m_Buffer) return WAITING;
  // What answers provisionally (100, 180), and what fills the buffer without an end, is forgotten.
  m_nHeld = 0;
  return complete ? Read(message) : WAITING;
}

unsigned CInviteAnswer::Read(std::string_view message) {
  static constexpr std::string_view MEDIA = "m=audio", OK = "200 OK";
  unsigned outcome = WAITING;
  const size_t media = message.find(MEDIA);
  if (media != std::string_view::npos) {
    const std::string number(LineAt(message, media).substr(MEDIA.size()));
    const long port = number.empty() ? -1 : std::strtol(number.c_str() + 1, nullptr, 10);
    if (port >= 0 && port <= 0xFFFF) m_wRTPPort = static_cast<unsigned short>(port);
    outcome |= OVER;
  }
  const size_t ok = message.find(OK);
  if (ok != std::string_view::npos && message.find(TO, ok) != std::string_view::npos) {
    m_ToTag = CSIPMessage::ToTag(message.substr(ok));
    outcome |= ACCEPTED;
  }
  return outcome;
}
