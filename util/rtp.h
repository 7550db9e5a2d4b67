// The RTP packet header (RFC 3550 5.1).
#pragma once

#include "util/bytes.h"

#include <cstdint>
#include <optional>
#include <span>

inline constexpr int RTP_HEADER_BYTES = 12;

// Length of the header with contributing sources and extension; 0 when the packet ends before they do. Asks for
// nothing else, so that it also reads what cameras send with a wrong version or padding.
int RTPHeaderLength(const unsigned char* packet, int length);

inline int RTPPayloadType(const unsigned char* packet) {
  return packet[1] & 0x7F;
}

struct GXT_RTP_PACKET {
  int PayloadType;
  uint16_t Sequence;
  uint32_t Timestamp, Source;              // SSRC
  std::span<const unsigned char> Payload;  // within the packet, without padding; not empty
};

// The fields of a whole packet. Nothing when it is of another version, is cut short, or carries nothing.
std::optional<GXT_RTP_PACKET> ParseRTP(std::span<const unsigned char> packet);
