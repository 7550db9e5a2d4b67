// Collects one RTSP reply (RFC 2326 7) from the pieces in which it arrives. Knows no socket.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

class CInterleavedFramer;

class CReplyReader {
 public:
  enum class State {
    MORE,          // the header is not complete
    BODY,          // some of the body is still to come
    COMPLETE,      // the reply is there
    UNAUTHORIZED,  // the camera wants the request again with credentials
  };

  // Collects into `reply`, which stays the caller's and is zeroed; a reply that fills it has no terminating
  // NUL. `skipToReply`: the rest of an earlier body may come first, and is dropped. `stream`, may be null:
  // takes the interleaved data that stands before and behind this reply.
  CReplyReader(char* reply, int size, bool skipToReply, CInterleavedFramer* stream);

  std::span<char> Room();     // where to receive to; empty when nothing more is accepted
  State Added(size_t bytes);  // after `bytes` were received to there

  bool Begun() const { return !m_bSkipLead; }  // false while only the rest of an earlier body has come
  std::string_view Text() const { return {m_pReply, m_iHeld}; }
  bool BodyUnread() const { return m_bBodyUnread || m_iMissing > 0; }  // the rest of its body is still to come

 private:
  State HeaderComplete(size_t headerBytes);
  bool DropLead();
  void TakeSurplus(size_t replyBytes);

  char* m_pReply;
  size_t m_iSize, m_iHeld = 0;
  bool m_bSkipLead;
  CInterleavedFramer* m_pStream;
  size_t m_iLead = 0;     // bytes dropped before the reply
  size_t m_iMissing = 0;  // bytes of the body still to come
  bool m_bBodyUnread = false;
  bool m_bRefused = false;
  char m_Overflow[512];  // what of the body does not fit
};
