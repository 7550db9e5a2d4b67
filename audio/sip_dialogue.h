// What is said in a SIP call to a camera's speaker (RFC 3261): the requests that we write and what we read in
// the camera's messages. Knows no socket.
#pragma once

#include "host/base/gxstring.h"

#include <cstddef>
#include <span>
#include <string_view>

inline constexpr unsigned short SIP_PORT = 5060;
inline constexpr size_t SIP_MESSAGE_BYTES = 4096;  // most of a message that is looked at

// One dialogue (RFC 3261 12): the two parties and what identifies it.
class CSIPDialogue {
 public:
  // The camera's user is its serial number. `localPort`: of our SIP socket.
  CSIPDialogue(const CGXString& serialNo, const CGXString& cameraAddress, const CGXString& systemAddress,
               int localPort);

  void Renew();  // a new Call-ID, tag and branch: another dialogue between the same parties
  void ToTag(const CGXString& tag) { m_ToTag = tag; }  // as the camera answered it, with its ";tag="
  const CGXString& ToTag() const { return m_ToTag; }
  const CGXString& CallID() const { return m_CallID; }

  const CGXString& CameraURI() const { return m_CameraURI; }
  const CGXString& SystemURI() const { return m_SystemURI; }
  CGXString Request(const char* method, int cseq, const CGXString& body) const;
  // What we send: mu-law (RFC 4566, RFC 3551) to be fetched by nobody, sent from `rtpPort`.
  CGXString SessionDescription(unsigned identity, int rtpPort) const;

 private:
  CGXString m_SystemAddress;
  int m_iLocalPort;
  CGXString m_CameraURI, m_SystemURI;
  CGXString m_CallID, m_FromTag, m_Via, m_ToTag;
};

// Reading a message.
class CSIPMessage {
 public:
  static constexpr std::string_view END_OF_HEADER = "\r\n\r\n";

  // What follows `key` in the text, without leading blanks, up to the end of its line; empty when absent.
  static CGXString Extract(const char* key, const char* text);
  static CGXString ToTag(std::string_view text);  // what "To:" says from its first ';' on: ";tag=..."
  static CGXString RandomString(int length);      // letters and digits

  // The two messages with which an INFO request of the camera is answered: a 200 that names `contact` as our
  // address, and an INFO of our own to `uri`, both with the request's header values.
  static CGXString InfoAnswer(const char* request, const CGXString& contact);
  static CGXString InfoRequest(const char* request, const CGXString& uri);
};

// Waits, message by message, for the camera to say where it takes the sound of the call.
class CInviteAnswer {
 public:
  static constexpr unsigned short DEFAULT_RTP_PORT = 5558;

  enum Outcome : unsigned { WAITING = 0, OVER = 1, ACCEPTED = 2 };  // bits

  std::span<char> Room() { return std::span(m_Buffer).subspan(m_nHeld); }  // where to receive to; never empty
  unsigned Added(size_t bytes);  // after that; OVER: the port is known. ACCEPTED: this was a 200

  unsigned short RTPPort() const { return m_wRTPPort; }
  const CGXString& ToTag() const { return m_ToTag; }  // with its ";tag="

 private:
  unsigned Read(std::string_view message);

  char m_Buffer[SIP_MESSAGE_BYTES];
  size_t m_nHeld = 0;
  unsigned short m_wRTPPort = DEFAULT_RTP_PORT;
  CGXString m_ToTag;
};
