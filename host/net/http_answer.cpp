#include "host/net/http_answer.h"

#include "util/numbers.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>

namespace {

constexpr size_t MAX_HEADER_BYTES = 64 * 1024;
constexpr size_t MAX_CHUNK_LINE_BYTES = 4 * 1024;
constexpr size_t MAX_PROLOG_BYTES = 4 * 1024;  // how far into a body its first element is sought
constexpr std::string_view HTTP_VERSION_START = "HTTP/";
// Small servers count the terminator of their text as part of it.
constexpr std::string_view WHITE_SPACE{" \t\r\n\v\f\0", 7};
constexpr std::string_view NAME_END = " \t\r\n/>";

constexpr int STATUS_SWITCHING_PROTOCOLS = 101;
constexpr int STATUS_NO_CONTENT = 204;
constexpr int STATUS_NOT_MODIFIED = 304;

bool EqualNoCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

std::string_view Trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(WHITE_SPACE);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(WHITE_SPACE) - first + 1);
}

std::string_view Take(std::string_view& bytes, size_t count) {
  const std::string_view taken = bytes.substr(0, count);
  bytes.remove_prefix(taken.size());
  return taken;
}

// A whole number of that base at the beginning of `text`; absent when there is none or it is beyond all bounds.
std::optional<size_t> Number(std::string_view text, int base, std::string_view* rest) {
  size_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc()) return std::nullopt;
  *rest = text.substr(static_cast<size_t>(end - text.data()));
  return value;
}

// Skips a comment, a declaration or an instruction at `at`; npos while its end is missing.
size_t SkipMarkup(std::string_view text, size_t at) {
  const std::string_view end = text.substr(at).starts_with("<!--") ? "-->"
                               : text.substr(at).starts_with("<?") ? "?>"
                                                                   : ">";
  const size_t found = text.find(end, at);
  return found == std::string_view::npos ? found : found + end.size();
}

}  // namespace

GXT_HTTP_PROGRESS CHTTPAnswer::Feed(std::string_view bytes) {
  while (!bytes.empty() && m_Phase != Phase::Done) {
    switch (m_Phase) {
      case Phase::Start:
        FeedStart(bytes);
        break;
      case Phase::Header:
        FeedHeader(bytes);
        break;
      case Phase::Body:
        FeedBody(bytes);
        break;
      case Phase::ChunkSize:
        FeedChunkSize(bytes);
        break;
      case Phase::ChunkData:
        FeedChunkData(bytes);
        break;
      case Phase::ChunkEnd:
      case Phase::Trailer:
        FeedChunkLine(bytes);
        break;
      case Phase::Done:
        break;
    }
  }
  if (m_Phase == Phase::Done) return GXT_HTTP_PROGRESS::Complete;
  return m_Phase == Phase::Start || m_Phase == Phase::Header ? GXT_HTTP_PROGRESS::More : BodyProgress();
}

// Empty lines before the status line are skipped (RFC 9112 2.2). What does not begin like HTTP is all body.
void CHTTPAnswer::FeedStart(std::string_view& bytes) {
  const char next = ::Take(bytes, 1)[0];
  if (m_Result.empty() && (next == '\r' || next == '\n')) return;
  m_Result += next;
  if (!EqualNoCase(m_Result, HTTP_VERSION_START.substr(0, m_Result.size()))) {
    const std::string start = std::move(m_Result);
    m_Result.clear();
    m_Phase = Phase::Body;
    AppendBody(start);
  } else if (m_Result.size() == HTTP_VERSION_START.size()) {
    m_Phase = Phase::Header;
    m_Line.swap(m_Result);
    m_Result.clear();
  }
}

bool CHTTPAnswer::TakeLine(std::string_view& bytes) {
  const size_t end = bytes.find('\n');
  if (end == std::string_view::npos) {
    m_Line += ::Take(bytes, bytes.size());
    return false;
  }
  m_Line += ::Take(bytes, end);
  bytes.remove_prefix(1);
  if (m_Line.ends_with('\r')) m_Line.pop_back();
  return true;
}

// The header is kept line by line, so that one with bare line feeds ends as everybody expects.
void CHTTPAnswer::FeedHeader(std::string_view& bytes) {
  const size_t room = MAX_HEADER_BYTES - m_Result.size();
  std::string_view part = bytes.substr(0, room);
  const size_t before = part.size();
  const bool whole = TakeLine(part);
  bytes.remove_prefix(before - part.size());
  if (!whole) {
    if (m_Line.size() < room) return;
    m_Result += m_Line;
    m_Phase = Phase::Done;
    return;
  }
  m_Result += m_Line + "\r\n";
  if (m_Line.empty()) {
    HeaderEnd();
  } else {
    HeaderLine();
  }
  m_Line.clear();
  if (m_Result.size() >= MAX_HEADER_BYTES && m_Phase == Phase::Header) m_Phase = Phase::Done;
}

void CHTTPAnswer::HeaderLine() {
  const std::string_view line = m_Line;
  std::string_view rest;
  if (m_iStatus == 0) {
    const size_t blank = std::min(line.find(' '), line.size());
    m_iStatus =
        static_cast<int>(std::min<size_t>(Number(Trimmed(line.substr(blank)), 10, &rest).value_or(999), 999));
    return;
  }
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  const std::string_view name = Trimmed(line.substr(0, colon));
  const std::string_view value = Trimmed(line.substr(colon + 1));
  if (EqualNoCase(name, "Content-Length")) {
    std::optional<size_t> length = LeadingNumber<size_t>(value, &rest);
    if (value.starts_with('-')) length.reset();
    if (!length || !rest.empty() || (m_nLength && m_nLength != length)) m_bBadLength = true;
    m_nLength = length;
  } else if (EqualNoCase(name, "Transfer-Encoding")) {
    constexpr std::string_view CHUNKED = "chunked";
    m_bChunked =
        value.size() >= CHUNKED.size() && EqualNoCase(value.substr(value.size() - CHUNKED.size()), CHUNKED);
  }
}

void CHTTPAnswer::HeaderEnd() {
  if (m_bBadLength || m_bChunked) m_nLength.reset();
  m_bBadLength = false;
  if (m_iStatus >= 100 && m_iStatus < 200 && m_iStatus != STATUS_SWITCHING_PROTOCOLS) {
    m_Result.clear();
    m_iStatus = 0;
    m_nLength.reset();
    m_bChunked = false;
    m_Phase = Phase::Start;
    return;
  }
  m_nBody = m_Result.size();
  if (m_iStatus == STATUS_NO_CONTENT || m_iStatus == STATUS_NOT_MODIFIED) {
    m_Phase = Phase::Done;
  } else {
    m_Phase = m_bChunked ? Phase::ChunkSize : Phase::Body;
  }
}

void CHTTPAnswer::FeedBody(std::string_view& bytes) {
  if (m_nLength && Body().size() < *m_nLength) {
    AppendBody(::Take(bytes, *m_nLength - Body().size()));
    if (BodyProgress() == GXT_HTTP_PROGRESS::Complete) return;
  }
  AppendBody(::Take(bytes, bytes.size()));
}

void CHTTPAnswer::FeedChunkSize(std::string_view& bytes) {
  // Announced in chunks but sent plain: neither an element nor a picture begins with a digit.
  if (!m_bAnyChunk && m_Line.empty() && std::isxdigit(static_cast<unsigned char>(bytes[0])) == 0) {
    m_Phase = Phase::Body;
    return;
  }
  if (!TakeLine(bytes)) {
    if (m_Line.size() > MAX_CHUNK_LINE_BYTES) m_Phase = Phase::Done;
    return;
  }
  std::string_view rest;
  const std::optional<size_t> size = Number(m_Line, 16, &rest);
  rest = Trimmed(rest);
  const bool good = size && (rest.empty() || rest[0] == ';');
  m_bAnyChunk = true;
  m_nChunkLeft = size.value_or(0);
  m_Phase = !good ? Phase::Done : m_nChunkLeft > 0 ? Phase::ChunkData : Phase::Trailer;
  m_Line.clear();
}

void CHTTPAnswer::FeedChunkData(std::string_view& bytes) {
  const std::string_view data = ::Take(bytes, m_nChunkLeft);
  m_nChunkLeft -= data.size();
  if (m_nChunkLeft == 0) m_Phase = Phase::ChunkEnd;
  AppendBody(data);
}

void CHTTPAnswer::FeedChunkLine(std::string_view& bytes) {
  if (!TakeLine(bytes)) {
    if (m_Line.size() > MAX_CHUNK_LINE_BYTES) m_Phase = Phase::Done;
    return;
  }
  const bool empty = m_Line.empty();
  m_Line.clear();
  if (m_Phase == Phase::ChunkEnd) {
    m_Phase = empty ? Phase::ChunkSize : Phase::Done;
  } else if (empty) {
    m_Phase = Phase::Done;
  }
}

void CHTTPAnswer::AppendBody(std::string_view bytes) {
  const size_t room = m_nMaxBytes - std::min(m_nMaxBytes, m_Result.size());
  if (bytes.size() >= room) {
    bytes = bytes.substr(0, room);
    m_Phase = Phase::Done;
  }
  const size_t last = bytes.find_last_not_of(WHITE_SPACE);
  if (last != std::string_view::npos) m_nText = Body().size() + last + 1;
  m_Result += bytes;
}

// Small servers announce a length that they never measured: too small (then the rest follows), or too large. So
// it ends an answer only together with a body that is whole; a body that looks whole ends it after a silence.
GXT_HTTP_PROGRESS CHTTPAnswer::BodyProgress() {
  const bool whole = EndsElement() || EndsPicture();
  if (!AtAnnouncedEnd()) return whole ? GXT_HTTP_PROGRESS::Settled : GXT_HTTP_PROGRESS::More;
  if (whole) {
    m_Phase = Phase::Done;
    return GXT_HTTP_PROGRESS::Complete;
  }
  if (Text().empty()) return GXT_HTTP_PROGRESS::Settled;
  FindRoot();
  const bool inElement = !m_bRootSought || (!m_Root.empty() && !Text().ends_with('>'));
  return inElement || BeginsPicture() ? GXT_HTTP_PROGRESS::More : GXT_HTTP_PROGRESS::Settled;
}

bool CHTTPAnswer::BeginsPicture() const {
  return Body().starts_with("\xFF\xD8");
}

bool CHTTPAnswer::EndsPicture() const {
  return BeginsPicture() && Text().ends_with("\xFF\xD9");
}

// Whether the body ends with the end of its first element.
bool CHTTPAnswer::EndsElement() {
  std::string_view text = Text();
  if (!text.ends_with('>')) return false;
  FindRoot();
  if (m_Root.empty()) return false;
  if (text.ends_with("/>")) return text.size() - m_nRoot <= MAX_PROLOG_BYTES && text.rfind('<') == m_nRoot;
  text.remove_suffix(1);
  text = text.substr(0, text.find_last_not_of(WHITE_SPACE) + 1);
  if (text.size() < m_Root.size() + 2) return false;
  const std::string_view name = text.substr(text.size() - m_Root.size());
  text.remove_suffix(m_Root.size());
  return text.ends_with("</") && EqualNoCase(name, m_Root);
}

void CHTTPAnswer::FindRoot() {
  if (m_bRootSought) return;
  const std::string_view body = Body().substr(0, MAX_PROLOG_BYTES);
  m_bRootSought = body.size() == MAX_PROLOG_BYTES;  // what follows changes nothing any more
  size_t at = body.starts_with("\xEF\xBB\xBF") ? 3 : 0;
  for (;;) {
    at = body.find_first_not_of(WHITE_SPACE, at);
    if (at == std::string_view::npos || at + 1 >= body.size()) return;
    if (body[at] != '<' || (body[at + 1] != '!' && body[at + 1] != '?')) break;
    at = SkipMarkup(body, at);
  }
  if (body[at] == '<') {
    const size_t end = body.find_first_of(NAME_END, at + 1);
    if (end == std::string_view::npos) return;
    m_Root = body.substr(at + 1, end - at - 1);
    m_nRoot = at;
  }
  m_bRootSought = true;
}

std::string CHTTPAnswer::Take() {
  if (m_Phase == Phase::Header) m_Result += m_Line;
  m_Phase = Phase::Done;
  return std::move(m_Result);
}
