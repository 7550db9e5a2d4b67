#include "rtsp/interleaved_framer.h"

#include "util/bytes.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

constexpr unsigned char MAGIC = '$';
constexpr size_t FRAME_HEADER_BYTES = 4;
constexpr std::string_view REPLY_START = "RTSP/1.";
constexpr std::string_view REPLY_END = "\r\n\r\n";
constexpr size_t MAX_REPLY_BYTES = 4096;

}  // namespace

std::span<unsigned char> CInterleavedFramer::Room() {
  if (m_pData == nullptr) m_pData = std::make_unique_for_overwrite<unsigned char[]>(CAPACITY);
  if (m_iBegin > 0) {
    std::memmove(m_pData.get(), Begin(), Held());
    m_iEnd -= m_iBegin;
    m_iBegin = 0;
  }
  return {m_pData.get() + m_iEnd, CAPACITY - m_iEnd};
}

void CInterleavedFramer::Append(const char* data, size_t bytes) {
  const std::span<unsigned char> room = Room();
  bytes = std::min(bytes, room.size());
  std::memcpy(room.data(), data, bytes);
  Added(bytes);
}

bool CInterleavedFramer::Next(size_t limit, Frame* frame) {
  while (Held() >= FRAME_HEADER_BYTES) {
    const unsigned char* const start = Begin();
    m_bInStep = *start == MAGIC;
    if (m_bInStep) {
      const size_t length = std::min<size_t>(ReadBE16(start + 2), limit);
      if (Held() < FRAME_HEADER_BYTES + length) return false;
      *frame = {start[1], {start + FRAME_HEADER_BYTES, length}};
      m_iBegin += FRAME_HEADER_BYTES + length;
      return true;
    }
    if (!FindStart()) return false;
  }
  return false;
}

// Moves on to the next '$'; false when there is none yet. Session ids and dates in a reply may hold a '$' of
// their own, so a reply is skipped as a whole.
bool CInterleavedFramer::FindStart() {
  const std::string_view held(reinterpret_cast<const char*>(Begin()), Held());
  const size_t magic = held.find(static_cast<char>(MAGIC));
  const size_t reply = held.substr(0, magic).find(REPLY_START);
  if (reply != std::string_view::npos) return SkipReply(reply);
  const bool found = magic != std::string_view::npos;
  m_iBegin += found ? magic : held.size() - std::min(held.size(), REPLY_START.size() - 1);
  return found;
}

bool CInterleavedFramer::SkipReply(size_t at) {
  m_iBegin += at;
  const std::string_view held(reinterpret_cast<const char*>(Begin()), Held());
  const size_t end = held.substr(0, MAX_REPLY_BYTES).find(REPLY_END);
  if (end != std::string_view::npos) {
    m_iBegin += end + REPLY_END.size();
    return true;
  }
  if (held.size() < MAX_REPLY_BYTES) return false;
  m_iBegin += REPLY_START.size();  // no reply after all
  return true;
}

size_t CInterleavedFramer::Take(unsigned char* out, size_t bytes) {
  const size_t taken = std::min(bytes, Held());
  if (taken > 0) std::memcpy(out, Begin(), taken);
  m_iBegin += taken;
  return taken;
}
