// Takes a notification out of the HTTP request that brings it (OASIS WS-BaseNotification 1.3, 4; RFC 9112).
#pragma once

#include <sys/types.h>

#include <span>
#include <string_view>

// Is given what a sender sends, piece by piece, and says when the request is whole. Small devices get on with
// less than HTTP asks for: any method and path will do, and a request without a length ends with the
// connection.
class CNotificationFramer {
 public:
  static constexpr int BUFFER_BYTES = 8192;  // the longest request with its header, and a terminator

  enum class Result {
    MORE,      // not whole yet
    COMPLETE,  // whole: the sender waits for its answer; Body() is as long as announced
    ENDED      // the sender has ended it, or there is no room for more; Body() is all that followed the header
  };

  void Begin();             // a new sender; forgets the former one
  std::span<char> Space();  // where the next bytes go; empty when there is no more room
  // Takes the result of receiving into Space(); 0 or less: nothing more comes.
  Result Received(ssize_t bytes);
  // Empty when there is none. Behind it (not always at once) stands a NUL. The caller may write into it; it
  // lives until Begin.
  std::span<char> Body() { return {m_Buffer + m_nBodyStart, m_nBody}; }

 private:
  std::string_view Text() const { return {m_Buffer, m_nFill}; }
  void SetBody(size_t start, size_t length);

  char m_Buffer[BUFFER_BYTES] = {};
  size_t m_nFill = 0;
  size_t m_nBodyStart = 0, m_nBody = 0;
};
