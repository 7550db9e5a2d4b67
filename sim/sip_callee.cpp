#include "sim/sip_callee.h"

#include <arpa/inet.h>

#include <algorithm>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds T1{500}, T2{4000};  // RFC 3261 17.1.1.1
constexpr size_t MOST_PENDING = 16;
constexpr char ALLOW[] = "INVITE, ACK, CANCEL, BYE, OPTIONS, INFO";
constexpr auto NEVER = CSIPCallee::Clock::time_point::max();

struct CRefusal {
  const char *Invite, *Reason;
  int Status;
};
constexpr CRefusal REFUSALS[] = {
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

struct CSIPCallee::CCall {
  CSIPText Invite;
  sockaddr_in Peer{};
  std::string OurTag, State = "ringing";
  long OurCSeq = 0;
  int RTPPort = 0, Infos = 0, InfosAnswered = 0, AnswersSent = 0;
  Clock::time_point AnswerAt = Clock::time_point::max(), InfoAt = AnswerAt, HangUpAt = AnswerAt;
};

CSIPCallee::CSIPCallee(std::string address, int port, std::string user, CLine line)
    : m_Address(std::move(address)), m_User(std::move(user)), m_IPort(port), m_Line(std::move(line)) {}

CSIPCallee::~CSIPCallee() = default;

void CSIPCallee::Receive(const std::string& datagram, const sockaddr_in& from, Clock::time_point now) {
  CSIPText message;
  if (!ParseSip(datagram, &message)) return;
  if (message.Status != 0) return OnResponse(message);
  const auto [cseq, method] = message.CSeq();
  for (const char* name : {"Via", "From", "To", "Call-ID"})
    if (message.Header(name).empty()) return m_Line.Note("SIP " + message.Method, "incomplete");
  if (cseq < 0 || method != message.Method) {
    m_Line.Note("SIP " + message.Method, "wrong CSeq");
    if (message.Method != "ACK") Respond(message, from, 400, "Bad Request");
    return;
  }
  OnRequest(message, from, now);
}

void CSIPCallee::OnRequest(const CSIPText& request, const sockaddr_in& from, Clock::time_point now) {
  if (request.Method == "INVITE") return OnInvite(request, from, now);
  if (request.Method == "ACK") return OnAck(request, now);
  if (request.Method == "BYE") return OnBye(request, from);
  if (request.Method == "CANCEL") return OnCancel(request, from, now);
  if (request.Method == "INFO") return OnInfo(request, from);
  if (request.Method != "OPTIONS") {
    m_Line.Note("SIP " + request.Method, "not allowed");
    return Respond(request, from, 405, "Method Not Allowed");
  }
  const bool silent = m_Line.Manner().OptionsSilent;
  m_Line.Note("SIP OPTIONS", silent ? "silent" : "ok");
  if (!silent) Respond(request, from, 200, "OK");
}

void CSIPCallee::OnInvite(const CSIPText& invite, const sockaddr_in& from, Clock::time_point now) {
  const CSIPManner manner = m_Line.Manner();
  // Sent again: so is the latest answer.
  const auto same = [&](const std::string& id, long cseq) {
    return id == invite.Header("Call-ID") && cseq == invite.CSeq().first;
  };
  for (const CPending& pending : m_Pending)
    if (pending.Method == "INVITE" && same(pending.CallId, pending.CSeq))
      return m_Line.Send(pending.Bytes, pending.Peer);
  if (m_PCall && same(m_PCall->Invite.Header("Call-ID"), m_PCall->Invite.CSeq().first)) {
    if (m_PCall->State == "ringing" && manner.Invite == "answer") Respond(invite, from, 180, "Ringing");
    return;
  }
  m_Line.Note("SIP INVITE", manner.Invite);
  if (manner.Invite == "silent") return;
  for (const CRefusal& refusal : REFUSALS)
    if (manner.Invite == refusal.Invite) return Refuse(invite, from, refusal.Status, refusal.Reason, now);
  if (!invite.Body.empty() && !OffersPcmu(invite.Body))
    return Refuse(invite, from, 488, "Not Acceptable Here", now);
  // One speaker, one caller.
  if (m_PCall && !manner.Takeover) return Refuse(invite, from, 486, "Busy Here", now);
  End("replaced");
  m_PCall = std::make_unique<CCall>();
  m_PCall->Invite = invite;
  m_PCall->Peer = from;
  m_PCall->OurTag = "door" + std::to_string(m_NNextToken++);
  const bool provisional = manner.Invite == "answer" || manner.Invite == "no_answer";
  if (provisional) {
    CSIPText trying = Response(invite, from, 100, "Trying");
    m_Line.Send(trying.ToString(), from);
    Respond(invite, from, 180, "Ringing");
  }
  if (manner.Invite == "no_answer") return;
  m_PCall->AnswerAt = manner.Invite == "immediate" ? now : now + milliseconds(manner.AnswerMs);
  OnTimer(now);
}

void CSIPCallee::Answer(Clock::time_point now) {
  m_PCall->AnswerAt = NEVER;
  m_PCall->RTPPort = m_Line.Open();
  if (m_PCall->RTPPort == 0) {
    Refuse(m_PCall->Invite, m_PCall->Peer, 503, "Service Unavailable", now);
    return End("no port");
  }
  m_PCall->State = "answered";
  CSIPText ok = Response(m_PCall->Invite, m_PCall->Peer, 200, "OK");
  ok.Add("Contact", Contact());
  ok.Add("Content-Type", "application/sdp");
  ok.Body = Description();
  CPending pending{m_PCall->Invite.Header("Call-ID"),
                   "INVITE",
                   ok.ToString(),
                   m_PCall->Invite.CSeq().first,
                   200,
                   m_PCall->Peer,
                   {},
                   {},
                   {},
                   m_Line.Manner().LoseAcks};
  m_PCall->AnswersSent = 1;
  Keep(std::move(pending), now);
}

void CSIPCallee::Refuse(const CSIPText& invite, const sockaddr_in& to, int status, const char* reason,
                        Clock::time_point now) {
  const CSIPText refusal = Response(invite, to, status, reason);
  Keep({invite.Header("Call-ID"), "INVITE", refusal.ToString(), invite.CSeq().first, status, to, {}, {}, {}, 0},
       now);
}

void CSIPCallee::OnAck(const CSIPText& ack, Clock::time_point now) {
  const auto answer = std::find_if(m_Pending.begin(), m_Pending.end(), [&](const CPending& p) {
    return p.Status != 0 && p.CallId == ack.Header("Call-ID") && p.CSeq == ack.CSeq().first;
  });
  if (answer == m_Pending.end()) return m_Line.Note("SIP ACK", "unknown");
  if (answer->Status == 200 && !InCall(ack)) return m_Line.Note("SIP ACK", "wrong tag");
  if (answer->AcksToLose > 0) {
    --answer->AcksToLose;
    return m_Line.Note("SIP ACK", "lost");
  }
  m_Line.Note("SIP ACK", "ok");
  const bool accepted = answer->Status == 200;
  m_Pending.erase(answer);
  if (!accepted || !m_PCall) return;
  const CSIPManner manner = m_Line.Manner();
  m_PCall->State = "confirmed";
  if (manner.InfoMs > 0) m_PCall->InfoAt = now + milliseconds(manner.InfoMs);
  if (manner.HangUpMs > 0) m_PCall->HangUpAt = now + milliseconds(manner.HangUpMs);
}

void CSIPCallee::OnBye(const CSIPText& bye, const sockaddr_in& from) {
  const bool ours = InCall(bye), again = !ours && bye.Header("Call-ID") == m_LastBye;
  const bool silent = m_Line.Manner().ByeSilent;
  m_Line.Note("SIP BYE", !ours ? (again ? "again" : "unknown") : (silent ? "silent" : "ok"));
  if (!ours && !again) return Respond(bye, from, 481, "Call/Transaction Does Not Exist");
  if (!silent) Respond(bye, from, 200, "OK");
  if (!ours) return;
  m_LastBye = bye.Header("Call-ID");
  End("bye");
}

void CSIPCallee::OnCancel(const CSIPText& cancel, const sockaddr_in& from, Clock::time_point now) {
  const bool ringing = m_PCall && m_PCall->State == "ringing" &&
                       m_PCall->Invite.Header("Call-ID") == cancel.Header("Call-ID") &&
                       m_PCall->Invite.CSeq().first == cancel.CSeq().first;
  m_Line.Note("SIP CANCEL", ringing ? "ok" : "unknown");
  if (!ringing) return Respond(cancel, from, 481, "Call/Transaction Does Not Exist");
  Respond(cancel, from, 200, "OK");
  Refuse(m_PCall->Invite, m_PCall->Peer, 487, "Request Terminated", now);
  End("cancelled");
}

void CSIPCallee::OnInfo(const CSIPText& info, const sockaddr_in& from) {
  const bool ours = m_PCall && m_PCall->Invite.Header("Call-ID") == info.Header("Call-ID");
  m_Line.Note("SIP INFO", ours ? "ok" : "unknown");
  if (ours) return Respond(info, from, 200, "OK");
  Respond(info, from, 481, "Call/Transaction Does Not Exist");
}

void CSIPCallee::OnResponse(const CSIPText& response) {
  if (response.Status < 200) return;
  const auto [cseq, method] = response.CSeq();
  const std::string id = response.Header("Call-ID");
  const auto request =
      std::find_if(m_Pending.begin(), m_Pending.end(), [&, number = cseq, &of = method](const CPending& p) {
        return p.Status == 0 && p.CallId == id && p.CSeq == number && p.Method == of;
      });
  if (request == m_Pending.end()) return;
  m_Pending.erase(request);
  m_Line.Note("SIP answer to " + method, std::to_string(response.Status));
  if (!m_PCall || method != "INFO") return;
  if (response.Status < 300) ++m_PCall->InfosAnswered;
  if (response.Status == 481) End("unknown to the caller");  // RFC 3261 12.2.1.2
}

void CSIPCallee::OnTimer(Clock::time_point now) {
  if (m_PCall && m_PCall->AnswerAt <= now) Answer(now);
  if (m_PCall && m_PCall->InfoAt <= now) {
    const bool waiting =
        std::any_of(m_Pending.begin(), m_Pending.end(), [](const CPending& p) { return p.Method == "INFO"; });
    m_PCall->InfoAt = now + milliseconds(std::max(m_Line.Manner().InfoMs, 1));
    if (!waiting) {
      ++m_PCall->Infos;
      SendRequest("INFO", now);
    }
  }
  if (m_PCall && m_PCall->HangUpAt <= now) {
    SendRequest("BYE", now);
    End("hung up");
  }
  for (auto at = m_Pending.begin(); at != m_Pending.end();) {
    if (at->Until <= now) {
      const CPending gone = *at;
      at = m_Pending.erase(at);
      GiveUp(gone, now);
      continue;
    }
    if (at->Next <= now) {
      m_Line.Send(at->Bytes, at->Peer);
      if (at->Status == 200 && m_PCall) ++m_PCall->AnswersSent;
      at->Interval = std::min(at->Interval * 2, T2);
      at->Next = now + at->Interval;
    }
    ++at;
  }
}

// An answer that nobody acknowledges ends the call with BYE (RFC 3261 13.3.1.4), an INFO that nobody answers
// too (12.2.1.2).
void CSIPCallee::GiveUp(const CPending& pending, Clock::time_point now) {
  const bool unheard = pending.Status == 200 || pending.Method == "INFO";
  if (!unheard || !m_PCall || m_PCall->Invite.Header("Call-ID") != pending.CallId) return;
  SendRequest("BYE", now);
  End(pending.Status == 200 ? "not acknowledged" : "caller gone");
}

CSIPCallee::Clock::time_point CSIPCallee::NextTimer() const {
  Clock::time_point first = NEVER;
  if (m_PCall) first = std::min({m_PCall->AnswerAt, m_PCall->InfoAt, m_PCall->HangUpAt});
  for (const CPending& pending : m_Pending) first = std::min({first, pending.Next, pending.Until});
  return first;
}

std::optional<CSIPCallState> CSIPCallee::Call() const {
  if (!m_PCall) return std::nullopt;
  return CSIPCallState{m_PCall->Invite.Header("Call-ID"),
                       SipAddress(m_PCall->Invite.Header("From")),
                       m_PCall->State,
                       m_PCall->Infos,
                       m_PCall->InfosAnswered,
                       m_PCall->AnswersSent};
}

void CSIPCallee::End(const std::string& how) {
  if (!m_PCall) return;
  CSIPCallState last = *Call();
  last.State = how;
  // What is still under way: requests to the caller and refusals; nothing else of this call.
  std::erase_if(m_Pending, [&](const CPending& p) {
    return p.CallId == last.Id && (p.Status == 200 || p.Method == "INFO");
  });
  m_PCall.reset();
  m_Line.Closed(last);
}

void CSIPCallee::Respond(const CSIPText& request, const sockaddr_in& to, int status, const char* reason) {
  CSIPText response = Response(request, to, status, reason);
  if (request.Method == "OPTIONS") response.Add("Accept", "application/sdp");
  m_Line.Send(response.ToString(), to);
}

CSIPText CSIPCallee::Response(const CSIPText& request, const sockaddr_in& to, int status,
                              const char* reason) const {
  CSIPText response;
  response.Status = status;
  response.Reason = reason;
  bool top = true;
  for (const auto& [key, value] : request.Headers) {
    if (key != "Via") continue;
    response.Add("Via", top ? ReturnedVia(value, to) : value);
    top = false;
  }
  std::string callee = request.Header("To");
  if (status > 100 && SipParameter(callee, "tag").empty())
    callee += ";tag=" + (m_PCall && m_PCall->Invite.Header("Call-ID") == request.Header("Call-ID")
                             ? m_PCall->OurTag
                             : "door" + std::to_string(m_NNextToken));
  response.Add("From", request.Header("From"));
  response.Add("To", callee);
  response.Add("Call-ID", request.Header("Call-ID"));
  response.Add("CSeq", request.Header("CSeq"));
  if (status != 100) response.Add("Allow", ALLOW);
  return response;
}

void CSIPCallee::SendRequest(const char* method, Clock::time_point now) {
  CSIPText request;
  request.Method = method;
  const CSIPText& invite = m_PCall->Invite;
  const std::string contact = invite.Header("Contact");
  request.URI = SipAddress(contact.empty() ? invite.Header("From") : contact);
  request.Add("Via", "SIP/2.0/UDP " + m_Address + ":" + std::to_string(m_IPort) + ";branch=z9hG4bKdoor" +
                         std::to_string(m_NNextToken++) + ";rport");
  request.Add("Max-Forwards", "70");
  request.Add("From", invite.Header("To") + ";tag=" + m_PCall->OurTag);
  request.Add("To", invite.Header("From"));
  request.Add("Call-ID", invite.Header("Call-ID"));
  request.Add("CSeq", std::to_string(++m_PCall->OurCSeq) + " " + method);
  request.Add("Contact", Contact());
  Keep(
      {invite.Header("Call-ID"), method, request.ToString(), m_PCall->OurCSeq, 0, m_PCall->Peer, {}, {}, {}, 0},
      now);
}

void CSIPCallee::Keep(CPending pending, Clock::time_point now) {
  pending.Interval = T1;
  pending.Next = now + T1;
  pending.Until = now + 64 * T1;
  m_Line.Send(pending.Bytes, pending.Peer);
  if (m_Pending.size() >= MOST_PENDING) m_Pending.pop_front();
  m_Pending.push_back(std::move(pending));
}

bool CSIPCallee::InCall(const CSIPText& request) const {
  return m_PCall && m_PCall->Invite.Header("Call-ID") == request.Header("Call-ID") &&
         SipParameter(request.Header("To"), "tag") == m_PCall->OurTag &&
         SipParameter(request.Header("From"), "tag") == SipParameter(m_PCall->Invite.Header("From"), "tag");
}

std::string CSIPCallee::Contact() const {
  return "<sip:" + m_User + "@" + m_Address + ":" + std::to_string(m_IPort) + ">";
}

std::string CSIPCallee::Description() const {
  return "v=0\r\no=" + m_User + " 1 1 IN IP4 " + m_Address + "\r\ns=Speaker\r\nc=IN IP4 " + m_Address +
         "\r\nt=0 0\r\nm=audio " + std::to_string(m_PCall->RTPPort) +
         " RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\na=recvonly\r\n";
}
