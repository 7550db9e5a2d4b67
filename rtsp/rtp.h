// The RTP packet header (RFC 3550 5.1).
#pragma once

#include "util/bytes.h"

inline constexpr int RTP_HEADER_BYTES = 12;

// Length of the header with contributing sources and extension; 0 when the packet ends before they do.
inline int RTPHeaderLength(const unsigned char* packet, int length) {
  if (length < RTP_HEADER_BYTES) return 0;
  int header = ((packet[0] & 0x0F) + 3) * 4;
  if ((packet[0] & 0x10) != 0) {
    if (header + 4 > length) return 0;
    header += 4 + ReadBE16(packet + header + 2) * 4;
  }
  return header <= length ? header : 0;
}

inline int RTPPayloadType(const unsigned char* packet) {
  return packet[1] & 0x7F;
}
