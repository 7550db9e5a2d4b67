#include "audio/sip_call.h"

#include "audio/sip_farewells.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstring>

namespace {

constexpr unsigned REPLY_MS = 1000;
constexpr int PORTS_TRIED = 16;

bool Bind(int socket, int port) {
  sockaddr_in any{};
  SetIP(INADDR_ANY, &any);
  any.sin_port = htons(static_cast<unsigned short>(port));
  return bind(socket, reinterpret_cast<const sockaddr*>(&any), sizeof any) == 0;
}

}  // namespace

void CSIPCall::Open(const CGXString& serialNo, const sockaddr_in& camera, int localPort) {
  Leave();
  m_Camera = camera;
  m_Socket.Reset(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  int port = localPort;
  while (!Bind(m_Socket.Get(), port) && port < localPort + PORTS_TRIED) ++port;
  m_Dialogue.emplace(serialNo, GXFormatAddress(&camera), GXFormatAddress(GetPrimaryIP()), port);
}

void CSIPCall::Leave() {
  if (m_bAsked && !Ended())
    CSIPFarewells::Instance()->Add(std::move(m_Socket), m_Camera,
                                   {*m_Dialogue, INVITE_CSEQ, m_Progress, CSIPFarewell::Clock::now()});
  m_Socket.Close();
  m_bAsked = m_bBye = false;
  m_Progress = {};
}

// A BYE ends the call that it names: one to which the camera has given another name goes on.
bool CSIPCall::Ended() const {
  return m_bBye && m_Progress.Now() == CInviteProgress::ANSWERED && m_Progress.ToTag() == m_Dialogue->ToTag();
}

int CSIPCall::Options() {
  return Exchange("OPTIONS", OPTIONS_CSEQ, {});
}

int CSIPCall::Invite(unsigned identity, int rtpPort) {
  const CGXString session = m_Dialogue->SessionDescription(identity, rtpPort);
  m_Dialogue->Renew();
  m_bAsked = true;
  return Exchange("INVITE", INVITE_CSEQ, session);
}

int CSIPCall::Acknowledge(const CGXString& toTag) {
  m_Dialogue->ToTag(toTag);
  return Exchange("ACK", INVITE_CSEQ, {});
}

// It bears the INVITE's number: these cameras know a call by it and go on holding the speaker after a BYE with
// the next one.
void CSIPCall::Bye() {
  m_bBye = true;
  Exchange("BYE", INVITE_CSEQ, {});
}

void CSIPCall::Observe(std::string_view message) {
  if (m_bAsked) m_Progress.Observe(message, m_Dialogue->CallID());
}

int CSIPCall::Exchange(const char* method, int cseq, const CGXString& body) {
  CGXString reply;
  const int done = Exchange(m_Socket.Get(), *m_Dialogue, &m_Camera, method, cseq, body, &reply);
  if (!m_bBye) Observe(reply.Str());
  return done;
}

// Any complete message counts as the reply: a camera that asks for a wait, or refuses, shows it by not
// answering the INVITE with a session.
int CSIPCall::Exchange(int socket, const CSIPDialogue& dialogue, const sockaddr_in* to, const char* method,
                       int cseq, const CGXString& body, CGXString* reply) {
  // Nothing is known to be at no address; sent there, a request would reach this machine itself.
  if (to->sin_addr.s_addr == INADDR_ANY) return 0;
  const CGXString request = dialogue.Request(method, cseq, body);
  const auto length = static_cast<ssize_t>(request.Str().size());
  if (sendto(socket, request.Str().data(), request.Str().size(), MSG_NOSIGNAL | MSG_DONTWAIT,
             reinterpret_cast<const sockaddr*>(to), sizeof *to) != length)
    return 0;
  if (std::strcmp(method, "ACK") == 0 || std::strcmp(method, "INFO") == 0) return 1;
  char held[SIP_MESSAGE_BYTES];
  size_t count = 0;
  while (count < sizeof held) {
    if (!WaitSocketReadState(socket, REPLY_MS)) return 0;
    const ssize_t received = recv(socket, held + count, sizeof held - count, MSG_DONTWAIT);
    count += received > 0 ? static_cast<size_t>(received) : 0;
    if (std::string_view(held, count).find(CSIPMessage::END_OF_HEADER) == std::string_view::npos) continue;
    if (reply != nullptr) *reply = CGXString(std::string_view(held, count));
    return 1;
  }
  return 0;
}
