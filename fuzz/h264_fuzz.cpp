// Sequences of RTP packets with H.264 into the depacketizer. The input: one byte for the capacity, then
// packets, each behind its length in one byte (times two). Bit 0 of that byte: the packet is given a
// well-formed header with the next sequence number, so that assembling is reached; otherwise it is taken as it
// is.
#include "host/video/depacketizer.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

void Check(bool holds) {
  if (!holds) std::abort();
}

// Takes all units of one packet; each is in its bounds behind a start code and of a type that may leave.
void Take(CH264Depacketizer& depacketizer, const std::vector<unsigned char>& packet, int capacity) {
  std::vector<unsigned char> out(static_cast<size_t>(capacity));
  int length = depacketizer.ProcessRTP(packet.data(), static_cast<int>(packet.size()), out.data(), capacity);
  for (size_t units = 0; length != 0; ++units) {
    Check(units <= packet.size());
    Check(length >= 4 && length <= capacity);
    Check(std::memcmp(out.data(), "\0\0\1", 3) == 0);
    const int type = out[3] & 0x1f;
    Check(type >= 1 && type <= 23);
    length = depacketizer.ProcessRTP(nullptr, 0, out.data(), capacity);
  }
  Check(depacketizer.ProcessRTP(nullptr, 0, out.data(), capacity) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  CH264Depacketizer depacketizer(-1);
  const int capacity = data[0] * 8;
  uint16_t sequence = 0xfff8;
  for (size_t at = 1; at < size;) {
    const bool wrap = (data[at] & 1) != 0;
    const size_t length = std::min<size_t>(data[at] & ~1u, size - at - 1);
    ++at;
    constexpr size_t HEADER = 12;
    std::vector<unsigned char> packet(wrap ? HEADER + length : length);
    std::copy_n(data + at, length, packet.end() - static_cast<long>(length));
    if (wrap) {
      packet[0] = 0x80;
      packet[2] = static_cast<unsigned char>(sequence >> 8);
      packet[3] = static_cast<unsigned char>(sequence & 0xff);
      ++sequence;
    }
    at += length;
    if (!packet.empty()) Take(depacketizer, packet, capacity);
  }
  return 0;
}
