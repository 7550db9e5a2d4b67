#include "util/rtp.h"

namespace {

constexpr int VERSION = 2;
constexpr unsigned char PADDING_BIT = 0x20, EXTENSION_BIT = 0x10, SOURCES_MASK = 0x0F;
constexpr int WORD_BYTES = 4;  // of sources and extensions

}  // namespace

int RTPHeaderLength(const unsigned char* packet, int length) {
  if (length < RTP_HEADER_BYTES) return 0;
  int header = RTP_HEADER_BYTES + (packet[0] & SOURCES_MASK) * WORD_BYTES;
  if ((packet[0] & EXTENSION_BIT) != 0) {
    if (header + WORD_BYTES > length) return 0;
    header += WORD_BYTES + ReadBE16(packet + header + 2) * WORD_BYTES;
  }
  return header <= length ? header : 0;
}

std::optional<GXT_RTP_PACKET> ParseRTP(std::span<const unsigned char> packet) {
  const unsigned char* const bytes = packet.data();
  const auto begin = static_cast<size_t>(RTPHeaderLength(bytes, static_cast<int>(packet.size())));
  if (begin == 0 || bytes[0] >> 6 != VERSION) return std::nullopt;
  const size_t padding = (bytes[0] & PADDING_BIT) != 0 ? packet.back() : 0;
  if ((bytes[0] & PADDING_BIT) != 0 && padding == 0) return std::nullopt;
  if (begin + padding >= packet.size()) return std::nullopt;
  return GXT_RTP_PACKET{RTPPayloadType(bytes), ReadBE16(bytes + 2), ReadBE32(bytes + 4), ReadBE32(bytes + 8),
                        packet.subspan(begin, packet.size() - padding - begin)};
}
