#include "rtsp/reply_reader.h"

#include "rtsp/interleaved_framer.h"
#include "util/numbers.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

constexpr std::string_view HEADER_END = "\r\n\r\n";
constexpr std::string_view REPLY_START = "RTSP/1.";
constexpr std::string_view CONTENT_LENGTH = "Content-Length:";
constexpr size_t MAX_LEAD_BYTES = 64 * 1024;  // no camera sends more between request and reply
static_assert(MAX_LEAD_BYTES * 2 <= CInterleavedFramer::CAPACITY, "the stream around a reply fits the framer");

size_t ContentLength(std::string_view text) {
  const size_t at = text.find(CONTENT_LENGTH);
  if (at == std::string_view::npos) return 0;
  return LeadingNumber<size_t>(text.substr(at + CONTENT_LENGTH.size())).value_or(0);
}

}  // namespace

CReplyReader::CReplyReader(char* reply, int size, bool skipToReply, CInterleavedFramer* stream)
    : m_pReply(reply),
      m_iSize(static_cast<size_t>(std::max(size, 0))),
      m_bSkipLead(skipToReply),
      m_pStream(stream) {
  std::fill_n(m_pReply, m_iSize, 0);
}

std::span<char> CReplyReader::Room() {
  if (m_bRefused) return {};
  const size_t room = m_iSize - m_iHeld;
  if (m_iMissing == 0) return {m_pReply + m_iHeld, room};
  if (room == 0) return {m_Overflow, std::min(sizeof m_Overflow, m_iMissing)};
  return {m_pReply + m_iHeld, std::min(room, m_iMissing)};
}

CReplyReader::State CReplyReader::Added(size_t bytes) {
  if (m_iMissing > 0) {
    m_iMissing -= bytes;
    if (m_iHeld < m_iSize) m_iHeld += bytes;
    return m_iMissing > 0 ? State::BODY : State::COMPLETE;
  }
  m_iHeld += bytes;
  if (m_pStream != nullptr && m_pReply[0] == '$') m_bSkipLead = true;  // pictures overtook the reply
  if (m_bSkipLead && !DropLead()) return State::MORE;
  const size_t end = Text().find(HEADER_END);
  return end == std::string_view::npos ? State::MORE : HeaderComplete(end + HEADER_END.size());
}

CReplyReader::State CReplyReader::HeaderComplete(size_t headerBytes) {
  const size_t content = ContentLength(Text()), held = m_iHeld - headerBytes;
  const size_t missing = content > held ? content - held : 0;
  if (Text().find("Unauthorized") != std::string_view::npos) {
    m_bBodyUnread = missing > 0;
    return State::UNAUTHORIZED;
  }
  if (missing == 0) {
    if (m_pStream != nullptr) TakeSurplus(headerBytes + content);
    return State::COMPLETE;
  }
  // A body far larger than the buffer is not waited for; the next exchange skips it.
  m_bBodyUnread = m_iSize + m_iHeld <= missing;
  if (m_bBodyUnread) return State::COMPLETE;
  m_iMissing = missing;
  return State::BODY;
}

// The stream begins in the same segment as the end of the reply.
void CReplyReader::TakeSurplus(size_t replyBytes) {
  const size_t surplus = m_iHeld - replyBytes;
  m_pStream->Append(m_pReply + replyBytes, surplus);
  std::memset(m_pReply + replyBytes, 0, surplus);
  m_iHeld = replyBytes;
}

// False while the reply has not begun.
bool CReplyReader::DropLead() {
  const size_t at = Text().find(REPLY_START);
  const bool found = at != std::string_view::npos;
  const size_t bytes = found ? at : m_iHeld - std::min(m_iHeld, REPLY_START.size() - 1);
  if (m_pStream != nullptr) m_pStream->Append(m_pReply, bytes);
  std::memmove(m_pReply, m_pReply + bytes, m_iHeld - bytes);
  m_iHeld -= bytes;
  std::memset(m_pReply + m_iHeld, 0, bytes);
  m_iLead += bytes;
  m_bRefused = m_iLead > MAX_LEAD_BYTES;
  m_bSkipLead = !found;
  return found;
}
