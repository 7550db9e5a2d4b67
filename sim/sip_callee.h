// The SIP side of a door station: it is called, never calls. Bytes and time go in, datagrams come out; no
// socket and no thread of its own.
#pragma once

#include "sim/sip_message.h"

#include <netinet/in.h>

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

// How it answers, taken anew for each request.
struct CSIPManner {
  std::string Invite = "answer";  // the values of the quirk "sip_invite"
  bool OptionsSilent = false, ByeSilent = false;
  bool Takeover = false;  // a new caller ends the call of the one before; else the speaker is busy
  int AnswerMs = 0;       // from the INVITE to its final answer
  int LoseAcks = 0;       // so many acknowledgements of an answer are overlooked
  int InfoMs = 0;         // between INFO requests in a call; 0: none
  int HangUpMs = 0;       // the camera ends the call so long after it began; 0: never
};

// What a call has seen so far.
struct CSIPCallState {
  std::string Id, Caller, State;  // state: ringing, answered, confirmed, or how it ended
  int Infos = 0, InfosAnswered = 0, AnswersSent = 0;
};

class CSIPCallee {
 public:
  using Clock = std::chrono::steady_clock;
  struct CLine {
    std::function<void(const std::string& bytes, const sockaddr_in& to)> Send;
    std::function<int()> Open;                         // the call is answered: the speaker's RTP port
    std::function<void(const CSIPCallState&)> Closed;  // it has ended
    std::function<CSIPManner()> Manner;
    std::function<void(const std::string& request, const std::string& outcome)> Note;
  };

  // `address` and `port` are the camera's own, `user` its name in SIP addresses.
  CSIPCallee(std::string address, int port, std::string user, CLine line);
  ~CSIPCallee();

  void Receive(const std::string& datagram, const sockaddr_in& from, Clock::time_point now);
  // Sends what is due.
  void OnTimer(Clock::time_point now);
  // When OnTimer has something to do next.
  Clock::time_point NextTimer() const;
  // The present call, if there is one.
  std::optional<CSIPCallState> Call() const;
  // Ends the present call without a word to the caller.
  void Drop(const std::string& how) { End(how); }

 private:
  // A final answer to INVITE that waits for its ACK (3261 13.3.1.4, 17.2.1), or a request of ours that waits
  // for its answer (17.1.2): sent again after T1, 2 T1, ... up to T2, for 64 T1.
  struct CPending {
    std::string CallId, Method, Bytes;
    long CSeq = 0;
    int Status = 0;  // of an answer; 0: a request
    sockaddr_in Peer{};
    Clock::time_point Next, Until;
    std::chrono::milliseconds Interval{};
    int AcksToLose = 0;
  };
  struct CCall;

  void OnRequest(const CSIPText& request, const sockaddr_in& from, Clock::time_point now);
  void OnResponse(const CSIPText& response);
  void OnInvite(const CSIPText& invite, const sockaddr_in& from, Clock::time_point now);
  void OnAck(const CSIPText& ack, Clock::time_point now);
  void OnBye(const CSIPText& bye, const sockaddr_in& from);
  void OnCancel(const CSIPText& cancel, const sockaddr_in& from, Clock::time_point now);
  void OnInfo(const CSIPText& info, const sockaddr_in& from);
  void Answer(Clock::time_point now);
  void Refuse(const CSIPText& invite, const sockaddr_in& to, int status, const char* reason,
              Clock::time_point now);
  void Respond(const CSIPText& request, const sockaddr_in& to, int status, const char* reason);
  void SendRequest(const char* method, Clock::time_point now);
  void Keep(CPending pending, Clock::time_point now);
  void GiveUp(const CPending& pending, Clock::time_point now);
  void End(const std::string& how);
  CSIPText Response(const CSIPText& request, const sockaddr_in& to, int status, const char* reason) const;
  bool InCall(const CSIPText& request) const;
  std::string Contact() const;
  std::string Description() const;

  const std::string m_Address, m_User;
  const int m_IPort;
  const CLine m_Line;
  std::unique_ptr<CCall> m_PCall;
  std::list<CPending> m_Pending;
  std::string m_LastBye;  // Call-ID of the latest call that its caller ended
  unsigned m_NNextToken = 1;
};
