// The end of a call that was given up while it was being set up (RFC 3261 9, 13.2.2.4, 15).
#pragma once

#include "audio/sip_dialogue.h"

#include <chrono>
#include <string_view>
#include <vector>

// How far the camera has come with our INVITE, from what it says.
class CInviteProgress {
 public:
  enum Stage { ASKED, RINGS, REFUSED, ANSWERED };

  // One message; what is no answer to an INVITE, or to that of another Call-ID, changes nothing. False then.
  bool Observe(std::string_view message, const CGXString& callID);

  Stage Now() const { return m_eStage; }
  int Status() const { return m_iStatus; }            // the latest; 0: none yet
  const CGXString& ToTag() const { return m_ToTag; }  // of the latest final answer, with its ";tag="

 private:
  Stage m_eStage = ASKED;
  int m_iStatus = 0;
  CGXString m_ToTag;
};

// Waits for the camera's answer and takes the call back: a 200 is acknowledged, each time that it comes, and
// followed by BYE, which is sent until it is answered; a refusal is acknowledged. A camera that has not
// answered when the patience is over is sent CANCEL, not before: small cameras know ACK and BYE, few know
// CANCEL. Messages and time go in, requests come out; knows no socket. One thread.
class CSIPFarewell {
 public:
  using Clock = std::chrono::steady_clock;
  using Requests = std::vector<CGXString>;

  static constexpr std::chrono::milliseconds T1{500}, T2{4000};  // RFC 3261 17.1.1.1
  static constexpr std::chrono::milliseconds PATIENCE{64 * T1};
  static constexpr std::chrono::milliseconds CANCEL_TIME{4 * T1};  // for the answer to CANCEL

  CSIPFarewell(CSIPDialogue dialogue, int cseq, CInviteProgress progress, Clock::time_point now);

  Requests Take(std::string_view message, Clock::time_point now);
  Requests Tick(Clock::time_point now);  // at the beginning, and when NextTimer has come
  Clock::time_point NextTimer() const { return m_Next; }
  void Hurry(Clock::time_point until);  // patience ends then, at the latest

  // Whether the camera may have a call of ours, or may yet begin one. One that has refused it only gets time to
  // think better of it.
  bool Owes() const { return m_eState != LISTENS && m_eState != OVER; }
  bool Over() const { return m_eState == OVER; }

 private:
  enum State { NEW, WAITS, CANCELS, LISTENS, LEAVES, OVER };
  Requests Follow(Clock::time_point now);
  Requests Leave(Clock::time_point now);
  Requests Cancel(Clock::time_point now);
  CGXString Acknowledge();
  bool AnswersBye(std::string_view message) const;

  CSIPDialogue m_Dialogue;
  const int m_iCSeq;
  CInviteProgress m_Progress;
  State m_eState = NEW;
  Clock::time_point m_Until, m_Next;
  std::chrono::milliseconds m_Interval = T1;  // between a BYE and the next
};
