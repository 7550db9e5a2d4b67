#pragma once
// The SIP side of a door station: it is called, never calls. Bytes and time go in, datagrams come out; no
// socket and no thread of its own.
#include "sim/sip_message.h"

#include <netinet/in.h>

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

// How it answers, taken anew for each request.
struct CSipManner {
  std::string invite = "answer";  // the values of the quirk "sip_invite"
  bool optionsSilent = false, byeSilent = false;
  int answerMs = 0;  // from the INVITE to its final answer
  int loseAcks = 0;  // so many acknowledgements of an answer are overlooked
  int infoMs = 0;    // between INFO requests in a call; 0: none
  int hangUpMs = 0;  // the camera ends the call so long after it began; 0: never
};

// What a call has seen so far.
struct CSipCallState {
  std::string id, caller, state;  // state: ringing, answered, confirmed, or how it ended
  int infos = 0, infosAnswered = 0, answersSent = 0;
};

class CSipCallee {
 public:
  using Clock = std::chrono::steady_clock;
  struct CLine {
    std::function<void(const std::string& bytes, const sockaddr_in& to)> send;
    std::function<int()> open;                         // the call is answered: the speaker's RTP port
    std::function<void(const CSipCallState&)> closed;  // it has ended
    std::function<CSipManner()> manner;
    std::function<void(const std::string& request, const std::string& outcome)> note;
  };

  // `address` and `port` are the camera's own, `user` its name in SIP addresses.
  CSipCallee(std::string address, int port, std::string user, CLine line);
  ~CSipCallee();

  void Receive(const std::string& datagram, const sockaddr_in& from, Clock::time_point now);
  // Sends what is due.
  void OnTimer(Clock::time_point now);
  // When OnTimer has something to do next.
  Clock::time_point NextTimer() const;
  // The present call, if there is one.
  std::optional<CSipCallState> Call() const;
  // Ends the present call without a word to the caller.
  void Drop(const std::string& how) { End(how); }

 private:
  // A final answer to INVITE that waits for its ACK (3261 13.3.1.4, 17.2.1), or a request of ours that waits
  // for its answer (17.1.2): sent again after T1, 2 T1, ... up to T2, for 64 T1.
  struct CPending {
    std::string callId, method, bytes;
    long cseq = 0;
    int status = 0;  // of an answer; 0: a request
    sockaddr_in peer{};
    Clock::time_point next, until;
    std::chrono::milliseconds interval{};
    int acksToLose = 0;
  };
  struct CCall;

  void OnRequest(const CSipMessage& request, const sockaddr_in& from, Clock::time_point now);
  void OnResponse(const CSipMessage& response);
  void OnInvite(const CSipMessage& invite, const sockaddr_in& from, Clock::time_point now);
  void OnAck(const CSipMessage& ack, Clock::time_point now);
  void OnBye(const CSipMessage& bye, const sockaddr_in& from);
  void OnCancel(const CSipMessage& cancel, const sockaddr_in& from, Clock::time_point now);
  void OnInfo(const CSipMessage& info, const sockaddr_in& from);
  void Answer(Clock::time_point now);
  void Refuse(const CSipMessage& invite, const sockaddr_in& to, int status, const char* reason,
              Clock::time_point now);
  void Respond(const CSipMessage& request, const sockaddr_in& to, int status, const char* reason);
  void SendRequest(const char* method, Clock::time_point now);
  void Keep(CPending pending, Clock::time_point now);
  void GiveUp(const CPending& pending, Clock::time_point now);
  void End(const std::string& how);
  CSipMessage Response(const CSipMessage& request, const sockaddr_in& to, int status, const char* reason) const;
  bool InCall(const CSipMessage& request) const;
  std::string Contact() const;
  std::string Description() const;

  const std::string m_address, m_user;
  const int m_port;
  const CLine m_line;
  std::unique_ptr<CCall> m_call;
  std::list<CPending> m_pending;
  std::string m_lastBye;  // Call-ID of the latest call that its caller ended
  unsigned m_nextToken = 1;
};
