// HTTP/1.1 requests as the host makes them (RFC 9110, RFC 9112).
#pragma once

#include "host/base/gxstring.h"

#include <string>

// A request under construction. Fields that were never set, or set to the empty text, are not sent.
class CHTTPHeader {
 public:
  void Command(CGXString command) { m_Command = command; }  // "GET /path"; the version is added
  void Host(CGXString host) { m_Host = host; }
  void Language(CGXString language) { m_Language = language; }
  void UserAgent(CGXString agent) { m_UserAgent = agent; }
  void Accept(CGXString accept) { m_Accept = accept; }
  void ContentType(CGXString type) { m_ContentType = type; }
  void Connection(CGXString connection) { m_Connection = connection; }
  void Content(CGXString content) {
    m_Content = content;
    m_bHasContent = true;
  }
  void SetBasicAuthorization(CGXString user, CGXString password);  // RFC 7617; both empty: none

  // The whole request: request line, a line for each field, Content-Length when there is content, empty line,
  // content.
  CGXString CreateString() const;

 private:
  CGXString m_Command, m_Host, m_Language, m_UserAgent, m_Accept, m_ContentType, m_Connection, m_Content,
      m_Authorization;
  bool m_bHasContent = false;
};

// One received answer: status line, headers, blank line, body with any transfer coding undone.
class CHTMLPage {
 public:
  explicit CHTMLPage(std::string bytes) : m_Bytes(std::move(bytes)) {}
  virtual ~CHTMLPage();

  char* Data() { return m_Bytes.data(); }  // NUL-terminated behind NBytes()
  int NBytes() const { return static_cast<int>(m_Bytes.size()); }

 private:
  std::string m_Bytes;
};

inline constexpr int HTTP_DEFAULT_TIMEOUT_MS = 10000;
inline constexpr int HTTP_MAX_ANSWER_BYTES = 1024 * 1024;

// Sends `request` as it stands to `address` ("host" or "host:port") and returns the whole answer, or null when
// nothing could be exchanged. Interim 1xx answers are dropped and chunks joined. It returns as soon as the
// answer is complete, at the latest after `timeout` ms in total (0: the default), and at once on a cancelled
// thread; an answer cut short by the server or the time-out is returned as far as it came. The caller deletes
// the page.
CHTMLPage* DoHTTPExchange(CGXString address, CGXString request, const char* bindAddress, int flags,
                          unsigned short defaultPort, int timeout);

// Undoes XML character references (&amp; &lt; &gt; &quot; &apos; &#n; &#xh;) and nothing else.
CGXString UnformatHTTPString(const CGXString& text);
