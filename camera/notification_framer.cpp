#include "camera/notification_framer.h"

#include "util/numbers.h"

#include <algorithm>

namespace {

constexpr std::string_view HEADER_END = "\r\n\r\n";
constexpr std::string_view LENGTH_FIELD = "Content-Length";
constexpr size_t LENGTH_FIELD_CHARS = 15;  // with its colon

// The number of a length field that begins at `field`; 0 when it is none, the largest one when it is beyond
// all.
size_t AnnouncedLength(std::string_view text, size_t field) {
  text.remove_prefix(std::min(field + LENGTH_FIELD_CHARS, text.size()));
  return LeadingNumber<size_t>(text).value_or(0);
}

}  // namespace

void CNotificationFramer::Begin() {
  m_nFill = 0;
  SetBody(0, 0);
}

std::span<char> CNotificationFramer::Space() {
  return {m_Buffer + m_nFill, BUFFER_BYTES - 1 - m_nFill};
}

CNotificationFramer::Result CNotificationFramer::Received(ssize_t bytes) {
  if (bytes > 0) {
    m_nFill += std::min(static_cast<size_t>(bytes), Space().size());
    m_Buffer[m_nFill] = '\0';
  }
  const size_t end = Text().find(HEADER_END);
  const size_t body = end + HEADER_END.size();
  if (bytes <= 0) {
    if (end != std::string_view::npos) SetBody(body, m_nFill - body);
    return Result::ENDED;
  }
  // The field is looked for everywhere, for its place and the form of the header differ.
  const size_t field = Text().find(LENGTH_FIELD);
  if (end == std::string_view::npos || field == std::string_view::npos) return Result::MORE;
  const size_t length = AnnouncedLength(Text(), field);
  if (length > m_nFill - body) return Result::MORE;
  SetBody(body, length);
  return Result::COMPLETE;
}

void CNotificationFramer::SetBody(size_t start, size_t length) {
  m_nBodyStart = start;
  m_nBody = length;
}
