#include "audio/sip_farewell.h"

#include <algorithm>
#include <string>
#include <utility>

namespace {

constexpr std::string_view STATUS_LINE = "SIP/2.0 ";
constexpr int OK = 200, REFUSAL = 300;

int StatusOf(std::string_view message) {
  if (!message.starts_with(STATUS_LINE)) return 0;
  return std::atoi(std::string(message.substr(STATUS_LINE.size(), 3)).c_str());
}

// Whether the message answers such a request; one that does not say what it answers answers any.
bool Answers(const std::string& message, const char* method) {
  const CGXString cseq = CSIPMessage::Extract("CSeq:", message.c_str());
  return cseq.IsEmpty() || cseq.Find(method) >= 0;
}

}  // namespace

bool CInviteProgress::Observe(std::string_view message, const CGXString& callID) {
  const int status = StatusOf(message);
  const std::string text(message);
  const CGXString of = CSIPMessage::Extract("Call-ID:", text.c_str());
  if (status < 100 || !Answers(text, "INVITE") || (!of.IsEmpty() && of != callID)) return false;
  if ((status < OK && m_eStage > RINGS) || (status >= REFUSAL && m_eStage == ANSWERED))
    return true;  // overtaken
  m_iStatus = status;
  m_eStage = status < OK ? RINGS : status < REFUSAL ? ANSWERED : REFUSED;
  if (status >= OK) m_ToTag = CSIPMessage::ToTag(message);
  return true;
}

CSIPFarewell::CSIPFarewell(CSIPDialogue dialogue, int cseq, CInviteProgress progress, Clock::time_point now)
    : m_Dialogue(std::move(dialogue)),
      m_iCSeq(cseq),
      m_Progress(std::move(progress)),
      m_Until(now + PATIENCE),
      m_Next(now) {}

void CSIPFarewell::Hurry(Clock::time_point until) {
  m_Until = std::min(m_Until, until);
  m_Next = std::min(m_Next, m_Until);
}

CSIPFarewell::Requests CSIPFarewell::Take(std::string_view message, Clock::time_point now) {
  if (AnswersBye(message)) {
    m_eState = OVER;
    return {};
  }
  const CGXString leaves = m_Dialogue.ToTag();
  if (!m_Progress.Observe(message, m_Dialogue.CallID()) || m_Progress.Status() < OK) return {};
  // The answer once more: the acknowledgement was lost.
  if (m_eState == LEAVES && m_Progress.ToTag() == leaves) return {Acknowledge()};
  return Follow(now);
}

bool CSIPFarewell::AnswersBye(std::string_view message) const {
  return m_eState == LEAVES && StatusOf(message) >= OK && Answers(std::string(message), "BYE");
}

CSIPFarewell::Requests CSIPFarewell::Tick(Clock::time_point now) {
  if (m_eState == NEW) return Follow(now);
  if (now < m_Next) return {};
  if (now >= m_Until) {
    if (m_eState == WAITS && m_Progress.Now() == CInviteProgress::RINGS) return Cancel(now);
    m_eState = OVER;
  }
  if (m_eState != LEAVES) return {};
  m_Interval = std::min(m_Interval * 2, T2);
  m_Next = std::min(now + m_Interval, m_Until);
  return {m_Dialogue.Request("BYE", m_iCSeq, {})};
}

// What the camera's latest word asks for.
CSIPFarewell::Requests CSIPFarewell::Follow(Clock::time_point now) {
  switch (m_Progress.Now()) {
    case CInviteProgress::ANSWERED:
      return Leave(now);
    case CInviteProgress::REFUSED:
      m_eState = m_eState == CANCELS ? OVER : LISTENS;
      m_Next = m_Until;
      return {Acknowledge()};
    default:
      m_eState = WAITS;
      m_Next = m_Until;
      return {};
  }
}

CSIPFarewell::Requests CSIPFarewell::Leave(Clock::time_point now) {
  m_eState = LEAVES;
  m_Until = now + PATIENCE;
  m_Interval = T1;
  m_Next = now + T1;
  const CGXString acknowledged = Acknowledge();
  return {acknowledged, m_Dialogue.Request("BYE", m_iCSeq, {})};
}

// Of the one who rings: it has not told a tag that would count.
CSIPFarewell::Requests CSIPFarewell::Cancel(Clock::time_point now) {
  m_eState = CANCELS;
  m_Next = m_Until = now + CANCEL_TIME;
  return {m_Dialogue.Request("CANCEL", m_iCSeq, {})};
}

CGXString CSIPFarewell::Acknowledge() {
  m_Dialogue.ToTag(m_Progress.ToTag());
  return m_Dialogue.Request("ACK", m_iCSeq, {});
}
