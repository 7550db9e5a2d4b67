// A call of ours to a camera's speaker: its socket, its dialogue, and how far it has come.
#pragma once

#include "audio/sip_farewell.h"
#include "util/owned_socket.h"

#include <netinet/in.h>

#include <optional>

// One thread. A call that was asked for and not ended is wound down aside when it is left (CSIPFarewells).
class CSIPCall {
 public:
  static constexpr int OPTIONS_CSEQ = 1, INVITE_CSEQ = 2;

  CSIPCall() = default;
  ~CSIPCall() { Leave(); }
  CSIPCall(const CSIPCall&) = delete;
  CSIPCall& operator=(const CSIPCall&) = delete;

  // Leaves the former and opens a socket for the next: at `localPort`, or at the next one that is free when the
  // call before is still being wound down there.
  void Open(const CGXString& serialNo, const sockaddr_in& camera, int localPort);
  void Leave();  // never waits

  // Each: 1, or 0 on failure.
  int Options();
  int Invite(unsigned identity, int rtpPort);
  int Acknowledge(const CGXString& toTag);
  void Bye();

  // What the camera sent meanwhile.
  void Observe(std::string_view message);
  const CInviteProgress& Progress() const { return m_Progress; }

  int Socket() const { return m_Socket.Get(); }
  const CSIPDialogue& Dialogue() const { return *m_Dialogue; }

  // Sends one request and, but for ACK and INFO, waits for any complete message, which `reply` gets (may be
  // null): 1, or 0 on failure.
  static int Exchange(int socket, const CSIPDialogue& dialogue, const sockaddr_in* to, const char* method,
                      int cseq, const CGXString& body, CGXString* reply = nullptr);

 private:
  int Exchange(const char* method, int cseq, const CGXString& body);
  bool Ended() const;

  COwnedSocket m_Socket;
  sockaddr_in m_Camera{};
  std::optional<CSIPDialogue> m_Dialogue;  // from Open on
  CInviteProgress m_Progress;
  bool m_bAsked = false;  // the camera has been sent an INVITE
  bool m_bBye = false;    // and a BYE
};
