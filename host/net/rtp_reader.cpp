#include "host/net/rtp_reader.h"

namespace {

using Bytes = std::span<const unsigned char>;

constexpr size_t RTP_HEADER_BYTES = 12;

uint32_t ReadBig(Bytes bytes, size_t at, size_t count) {
  uint32_t value = 0;
  for (const unsigned char byte : bytes.subspan(at, count)) value = value << 8 | byte;
  return value;
}

}  // namespace

std::optional<GXT_RTP_PACKET> ParseRTP(Bytes packet) {
  if (packet.size() < RTP_HEADER_BYTES || packet[0] >> 6 != 2) return std::nullopt;
  const size_t sources = packet[0] & 0xf;
  size_t begin = RTP_HEADER_BYTES + sources * 4;
  if ((packet[0] & 0x10) != 0) {
    if (packet.size() < begin + 4) return std::nullopt;
    begin += 4 + size_t{ReadBig(packet, begin + 2, 2)} * 4;
  }
  size_t end = packet.size();
  if ((packet[0] & 0x20) != 0) {
    const size_t padding = packet[end - 1];
    if (padding == 0 || padding > end) return std::nullopt;
    end -= padding;
  }
  if (begin >= end) return std::nullopt;
  return GXT_RTP_PACKET{packet[1] & 0x7f, static_cast<uint16_t>(ReadBig(packet, 2, 2)), ReadBig(packet, 4, 4),
                        ReadBig(packet, 8, 4), packet.subspan(begin, end - begin)};
}
