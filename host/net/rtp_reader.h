// The fields of a received RTP packet (RFC 3550 5.1).
#pragma once

#include <cstdint>
#include <optional>
#include <span>

struct GXT_RTP_PACKET {
  int PayloadType;
  uint16_t Sequence;
  uint32_t Timestamp, Source;              // SSRC
  std::span<const unsigned char> Payload;  // within the packet, without padding; not empty
};

// Contributing sources and the extension are skipped. Nothing when it is no such packet, is cut short, or
// carries nothing.
std::optional<GXT_RTP_PACKET> ParseRTP(std::span<const unsigned char> packet);
