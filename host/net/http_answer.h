// The reader of one HTTP answer (RFC 9112): it is given bytes as they come and says when to stop. No sockets.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

enum class GXT_HTTP_PROGRESS {
  More,      // the answer goes on
  Settled,   // it looks complete, but the server did not say so reliably: a short silence ends it
  Complete,  // no further byte belongs to it
};

class CHTTPAnswer {
 public:
  // At most `maxBytes` of result are kept; an answer that grows beyond is complete there.
  explicit CHTTPAnswer(size_t maxBytes) : m_nMaxBytes(maxBytes) {}

  // Takes the next bytes. After Complete they are ignored.
  GXT_HTTP_PROGRESS Feed(std::string_view bytes);

  // The final answer as far as it came: status line and header lines, each ended by CRLF, an empty line, and
  // the body with chunks joined. Interim answers (1xx) leave no trace. Bytes that are no HTTP come as they are.
  std::string Take();

 private:
  enum class Phase { Start, Header, Body, ChunkSize, ChunkData, ChunkEnd, Trailer, Done };

  void FeedStart(std::string_view& bytes);
  void FeedHeader(std::string_view& bytes);
  void FeedBody(std::string_view& bytes);
  void FeedChunkSize(std::string_view& bytes);
  void FeedChunkData(std::string_view& bytes);
  void FeedChunkLine(std::string_view& bytes);  // the line behind a chunk's data, or one of the trailer

  // Moves bytes into m_Line up to the next LF; true when the line is whole (its CRLF removed, the LF taken).
  bool TakeLine(std::string_view& bytes);
  void HeaderLine();
  void HeaderEnd();
  void AppendBody(std::string_view bytes);
  GXT_HTTP_PROGRESS BodyProgress();
  bool AtAnnouncedEnd() const { return m_nLength && Body().size() >= *m_nLength; }
  bool EndsElement();
  bool BeginsPicture() const;
  bool EndsPicture() const;
  void FindRoot();

  std::string_view Body() const { return std::string_view(m_Result).substr(m_nBody); }
  // The body without white space at its end.
  std::string_view Text() const { return Body().substr(0, m_nText); }

  const size_t m_nMaxBytes;
  Phase m_Phase = Phase::Start;
  std::string m_Result;
  std::string m_Line;  // a line not yet whole
  size_t m_nBody = 0;  // where the body begins in m_Result
  size_t m_nText = 0;  // length of the body without white space at its end

  int m_iStatus = 0;                // 0: no status line yet
  std::optional<size_t> m_nLength;  // as announced
  bool m_bBadLength = false;        // announced in ways that contradict each other
  bool m_bChunked = false;
  bool m_bAnyChunk = false;
  size_t m_nChunkLeft = 0;

  bool m_bRootSought = false;  // m_Root is known, or known to be absent (empty)
  size_t m_nRoot = 0;          // where the first element begins in the body
  std::string m_Root;          // its name
};
