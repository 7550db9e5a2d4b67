#include "sim/sip_callee.h"

#include <arpa/inet.h>

#include <algorithm>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kT1{500}, kT2{4000};  // RFC 3261 17.1.1.1
constexpr size_t kMostPending = 16;
constexpr char kAllow[] = "INVITE, ACK, CANCEL, BYE, OPTIONS, INFO";
constexpr auto kNever = CSipCallee::Clock::time_point::max();

struct CRefusal {
  const char *invite, *reason;
  int status;
};
constexpr CRefusal kRefusals[] = {
    {"busy", "Busy Here", 486}, {"decline", "Decline", 603}, {"error", "Server Internal Error", 500}};

std::string AddressText(const sockaddr_in& address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  return text;
}

// The top Via goes back with the address that the request came from (RFC 3581 4).
std::string ReturnedVia(const std::string& via, const sockaddr_in& from) {
  const std::string port = ";rport=" + std::to_string(ntohs(from.sin_port));
  std::string answer = via;
  const size_t at = answer.find(";rport");
  if (at != std::string::npos && (at + 6 == answer.size() || answer[at + 6] == ';'))
    answer.replace(at, 6, port);
  return answer + ";received=" + AddressText(from);
}

}  // namespace

struct CSipCallee::CCall {
  CSipMessage invite;
  sockaddr_in peer{};
  std::string ourTag, state = "ringing";
  long ourCSeq = 0;
  int rtpPort = 0, infos = 0, infosAnswered = 0, answersSent = 0;
  Clock::time_point answerAt = Clock::time_point::max(), infoAt = answerAt, hangUpAt = answerAt;
};

CSipCallee::CSipCallee(std::string address, int port, std::string user, CLine line)
    : m_address(std::move(address)), m_user(std::move(user)), m_port(port), m_line(std::move(line)) {}

CSipCallee::~CSipCallee() = default;

void CSipCallee::Receive(const std::string& datagram, const sockaddr_in& from, Clock::time_point now) {
  CSipMessage message;
  if (!ParseSip(datagram, &message)) return;
  if (message.status != 0) return OnResponse(message);
  const auto [cseq, method] = message.CSeq();
  for (const char* name : {"Via", "From", "To", "Call-ID"})
    if (message.Header(name).empty()) return m_line.note("SIP " + message.method, "incomplete");
  if (cseq < 0 || method != message.method) {
    m_line.note("SIP " + message.method, "wrong CSeq");
    if (message.method != "ACK") Respond(message, from, 400, "Bad Request");
    return;
  }
  OnRequest(message, from, now);
}

void CSipCallee::OnRequest(const CSipMessage& request, const sockaddr_in& from, Clock::time_point now) {
  if (request.method == "INVITE") return OnInvite(request, from, now);
  if (request.method == "ACK") return OnAck(request, now);
  if (request.method == "BYE") return OnBye(request, from);
  if (request.method == "CANCEL") return OnCancel(request, from, now);
  if (request.method == "INFO") return OnInfo(request, from);
  if (request.method != "OPTIONS") {
    m_line.note("SIP " + request.method, "not allowed");
    return Respond(request, from, 405, "Method Not Allowed");
  }
  const bool silent = m_line.manner().optionsSilent;
  m_line.note("SIP OPTIONS", silent ? "silent" : "ok");
  if (!silent) Respond(request, from, 200, "OK");
}

void CSipCallee::OnInvite(const CSipMessage& invite, const sockaddr_in& from, Clock::time_point now) {
  const CSipManner manner = m_line.manner();
  // Sent again: so is the latest answer.
  const auto same = [&](const std::string& id, long cseq) {
    return id == invite.Header("Call-ID") && cseq == invite.CSeq().first;
  };
  for (const CPending& pending : m_pending)
    if (pending.method == "INVITE" && same(pending.callId, pending.cseq))
      return m_line.send(pending.bytes, pending.peer);
  if (m_call && same(m_call->invite.Header("Call-ID"), m_call->invite.CSeq().first)) {
    if (m_call->state == "ringing" && manner.invite == "answer") Respond(invite, from, 180, "Ringing");
    return;
  }
  m_line.note("SIP INVITE", manner.invite);
  if (manner.invite == "silent") return;
  for (const CRefusal& refusal : kRefusals)
    if (manner.invite == refusal.invite) return Refuse(invite, from, refusal.status, refusal.reason, now);
  if (!invite.body.empty() && !OffersPcmu(invite.body))
    return Refuse(invite, from, 488, "Not Acceptable Here", now);
  // One speaker, one caller: who calls anew takes it over, as after a caller that went without a word.
  End("replaced");
  m_call = std::make_unique<CCall>();
  m_call->invite = invite;
  m_call->peer = from;
  m_call->ourTag = "door" + std::to_string(m_nextToken++);
  const bool provisional = manner.invite == "answer" || manner.invite == "no_answer";
  if (provisional) {
    CSipMessage trying = Response(invite, from, 100, "Trying");
    m_line.send(trying.ToString(), from);
    Respond(invite, from, 180, "Ringing");
  }
  if (manner.invite == "no_answer") return;
  m_call->answerAt = manner.invite == "immediate" ? now : now + milliseconds(manner.answerMs);
  OnTimer(now);
}

void CSipCallee::Answer(Clock::time_point now) {
  m_call->answerAt = kNever;
  m_call->rtpPort = m_line.open();
  if (m_call->rtpPort == 0) {
    Refuse(m_call->invite, m_call->peer, 503, "Service Unavailable", now);
    return End("no port");
  }
  m_call->state = "answered";
  CSipMessage ok = Response(m_call->invite, m_call->peer, 200, "OK");
  ok.Add("Contact", Contact());
  ok.Add("Content-Type", "application/sdp");
  ok.body = Description();
  CPending pending{m_call->invite.Header("Call-ID"),
                   "INVITE",
                   ok.ToString(),
                   m_call->invite.CSeq().first,
                   200,
                   m_call->peer,
                   {},
                   {},
                   {},
                   m_line.manner().loseAcks};
  m_call->answersSent = 1;
  Keep(std::move(pending), now);
}

void CSipCallee::Refuse(const CSipMessage& invite, const sockaddr_in& to, int status, const char* reason,
                        Clock::time_point now) {
  const CSipMessage refusal = Response(invite, to, status, reason);
  Keep({invite.Header("Call-ID"), "INVITE", refusal.ToString(), invite.CSeq().first, status, to, {}, {}, {}, 0},
       now);
}

void CSipCallee::OnAck(const CSipMessage& ack, Clock::time_point now) {
  const auto answer = std::find_if(m_pending.begin(), m_pending.end(), [&](const CPending& p) {
    return p.status != 0 && p.callId == ack.Header("Call-ID") && p.cseq == ack.CSeq().first;
  });
  if (answer == m_pending.end()) return m_line.note("SIP ACK", "unknown");
  if (answer->status == 200 && !InCall(ack)) return m_line.note("SIP ACK", "wrong tag");
  if (answer->acksToLose > 0) {
    --answer->acksToLose;
    return m_line.note("SIP ACK", "lost");
  }
  m_line.note("SIP ACK", "ok");
  const bool accepted = answer->status == 200;
  m_pending.erase(answer);
  if (!accepted || !m_call) return;
  const CSipManner manner = m_line.manner();
  m_call->state = "confirmed";
  if (manner.infoMs > 0) m_call->infoAt = now + milliseconds(manner.infoMs);
  if (manner.hangUpMs > 0) m_call->hangUpAt = now + milliseconds(manner.hangUpMs);
}

void CSipCallee::OnBye(const CSipMessage& bye, const sockaddr_in& from) {
  const bool ours = InCall(bye), again = !ours && bye.Header("Call-ID") == m_lastBye;
  const bool silent = m_line.manner().byeSilent;
  m_line.note("SIP BYE", !ours ? (again ? "again" : "unknown") : (silent ? "silent" : "ok"));
  if (!ours && !again) return Respond(bye, from, 481, "Call/Transaction Does Not Exist");
  if (!silent) Respond(bye, from, 200, "OK");
  if (!ours) return;
  m_lastBye = bye.Header("Call-ID");
  End("bye");
}

void CSipCallee::OnCancel(const CSipMessage& cancel, const sockaddr_in& from, Clock::time_point now) {
  const bool ringing = m_call && m_call->state == "ringing" &&
                       m_call->invite.Header("Call-ID") == cancel.Header("Call-ID") &&
                       m_call->invite.CSeq().first == cancel.CSeq().first;
  m_line.note("SIP CANCEL", ringing ? "ok" : "unknown");
  if (!ringing) return Respond(cancel, from, 481, "Call/Transaction Does Not Exist");
  Respond(cancel, from, 200, "OK");
  Refuse(m_call->invite, m_call->peer, 487, "Request Terminated", now);
  End("cancelled");
}

void CSipCallee::OnInfo(const CSipMessage& info, const sockaddr_in& from) {
  const bool ours = m_call && m_call->invite.Header("Call-ID") == info.Header("Call-ID");
  m_line.note("SIP INFO", ours ? "ok" : "unknown");
  if (ours) return Respond(info, from, 200, "OK");
  Respond(info, from, 481, "Call/Transaction Does Not Exist");
}

void CSipCallee::OnResponse(const CSipMessage& response) {
  if (response.status < 200) return;
  const auto [cseq, method] = response.CSeq();
  const std::string id = response.Header("Call-ID");
  const auto request =
      std::find_if(m_pending.begin(), m_pending.end(), [&, number = cseq, &of = method](const CPending& p) {
        return p.status == 0 && p.callId == id && p.cseq == number && p.method == of;
      });
  if (request == m_pending.end()) return;
  m_pending.erase(request);
  m_line.note("SIP answer to " + method, std::to_string(response.status));
  if (!m_call || method != "INFO") return;
  if (response.status < 300) ++m_call->infosAnswered;
  if (response.status == 481) End("unknown to the caller");  // RFC 3261 12.2.1.2
}

void CSipCallee::OnTimer(Clock::time_point now) {
  if (m_call && m_call->answerAt <= now) Answer(now);
  if (m_call && m_call->infoAt <= now) {
    const bool waiting =
        std::any_of(m_pending.begin(), m_pending.end(), [](const CPending& p) { return p.method == "INFO"; });
    m_call->infoAt = now + milliseconds(std::max(m_line.manner().infoMs, 1));
    if (!waiting) {
      ++m_call->infos;
      SendRequest("INFO", now);
    }
  }
  if (m_call && m_call->hangUpAt <= now) {
    SendRequest("BYE", now);
    End("hung up");
  }
  for (auto at = m_pending.begin(); at != m_pending.end();) {
    if (at->until <= now) {
      const CPending gone = *at;
      at = m_pending.erase(at);
      GiveUp(gone, now);
      continue;
    }
    if (at->next <= now) {
      m_line.send(at->bytes, at->peer);
      if (at->status == 200 && m_call) ++m_call->answersSent;
      at->interval = std::min(at->interval * 2, kT2);
      at->next = now + at->interval;
    }
    ++at;
  }
}

// An answer that nobody acknowledges ends the call with BYE (RFC 3261 13.3.1.4); an INFO without an answer is
// only that.
void CSipCallee::GiveUp(const CPending& pending, Clock::time_point now) {
  if (pending.status != 200 || !m_call || m_call->invite.Header("Call-ID") != pending.callId) return;
  SendRequest("BYE", now);
  End("not acknowledged");
}

CSipCallee::Clock::time_point CSipCallee::NextTimer() const {
  Clock::time_point first = kNever;
  if (m_call) first = std::min({m_call->answerAt, m_call->infoAt, m_call->hangUpAt});
  for (const CPending& pending : m_pending) first = std::min({first, pending.next, pending.until});
  return first;
}

std::optional<CSipCallState> CSipCallee::Call() const {
  if (!m_call) return std::nullopt;
  return CSipCallState{m_call->invite.Header("Call-ID"),
                       SipAddress(m_call->invite.Header("From")),
                       m_call->state,
                       m_call->infos,
                       m_call->infosAnswered,
                       m_call->answersSent};
}

void CSipCallee::End(const std::string& how) {
  if (!m_call) return;
  CSipCallState last = *Call();
  last.state = how;
  // What is still under way: requests to the caller and refusals; nothing else of this call.
  std::erase_if(m_pending, [&](const CPending& p) {
    return p.callId == last.id && (p.status == 200 || p.method == "INFO");
  });
  m_call.reset();
  m_line.closed(last);
}

void CSipCallee::Respond(const CSipMessage& request, const sockaddr_in& to, int status, const char* reason) {
  CSipMessage response = Response(request, to, status, reason);
  if (request.method == "OPTIONS") response.Add("Accept", "application/sdp");
  m_line.send(response.ToString(), to);
}

CSipMessage CSipCallee::Response(const CSipMessage& request, const sockaddr_in& to, int status,
                                 const char* reason) const {
  CSipMessage response;
  response.status = status;
  response.reason = reason;
  bool top = true;
  for (const auto& [key, value] : request.headers) {
    if (key != "Via") continue;
    response.Add("Via", top ? ReturnedVia(value, to) : value);
    top = false;
  }
  std::string callee = request.Header("To");
  if (status > 100 && SipParameter(callee, "tag").empty())
    callee += ";tag=" + (m_call && m_call->invite.Header("Call-ID") == request.Header("Call-ID")
                             ? m_call->ourTag
                             : "door" + std::to_string(m_nextToken));
  response.Add("From", request.Header("From"));
  response.Add("To", callee);
  response.Add("Call-ID", request.Header("Call-ID"));
  response.Add("CSeq", request.Header("CSeq"));
  if (status != 100) response.Add("Allow", kAllow);
  return response;
}

void CSipCallee::SendRequest(const char* method, Clock::time_point now) {
  CSipMessage request;
  request.method = method;
  const CSipMessage& invite = m_call->invite;
  const std::string contact = invite.Header("Contact");
  request.uri = SipAddress(contact.empty() ? invite.Header("From") : contact);
  request.Add("Via", "SIP/2.0/UDP " + m_address + ":" + std::to_string(m_port) + ";branch=z9hG4bKdoor" +
                         std::to_string(m_nextToken++) + ";rport");
  request.Add("Max-Forwards", "70");
  request.Add("From", invite.Header("To") + ";tag=" + m_call->ourTag);
  request.Add("To", invite.Header("From"));
  request.Add("Call-ID", invite.Header("Call-ID"));
  request.Add("CSeq", std::to_string(++m_call->ourCSeq) + " " + method);
  request.Add("Contact", Contact());
  Keep({invite.Header("Call-ID"), method, request.ToString(), m_call->ourCSeq, 0, m_call->peer, {}, {}, {}, 0},
       now);
}

void CSipCallee::Keep(CPending pending, Clock::time_point now) {
  pending.interval = kT1;
  pending.next = now + kT1;
  pending.until = now + 64 * kT1;
  m_line.send(pending.bytes, pending.peer);
  if (m_pending.size() >= kMostPending) m_pending.pop_front();
  m_pending.push_back(std::move(pending));
}

bool CSipCallee::InCall(const CSipMessage& request) const {
  return m_call && m_call->invite.Header("Call-ID") == request.Header("Call-ID") &&
         SipParameter(request.Header("To"), "tag") == m_call->ourTag &&
         SipParameter(request.Header("From"), "tag") == SipParameter(m_call->invite.Header("From"), "tag");
}

std::string CSipCallee::Contact() const {
  return "<sip:" + m_user + "@" + m_address + ":" + std::to_string(m_port) + ">";
}

std::string CSipCallee::Description() const {
  return "v=0\r\no=" + m_user + " 1 1 IN IP4 " + m_address + "\r\ns=Speaker\r\nc=IN IP4 " + m_address +
         "\r\nt=0 0\r\nm=audio " + std::to_string(m_call->rtpPort) +
         " RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\na=recvonly\r\n";
}
