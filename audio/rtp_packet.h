// RTP packets of G.711 mu-law sound (RFC 3550 5.1, RFC 3551 4.5.14).
#pragma once

#include "util/rtp.h"

#include <cstdint>
#include <span>

// Byte writers, most significant byte first; what does not fit is cut.
inline void avio_w8(unsigned char* p, unsigned int v) {
  *p = static_cast<unsigned char>(v);
}
inline void avio_wb16(unsigned char* p, unsigned int v) {
  WriteBE16(p, v);
}
inline void avio_wb32(unsigned char* p, unsigned int v) {
  WriteBE32(p, v);
}

// Builds the packets of one stream. One thread.
class CPCMUPacketBuilder {
 public:
  static constexpr unsigned SAMPLE_RATE_HZ = 8000;
  static constexpr size_t PACKET_BYTES = 4096;  // most that a packet can be

  // `identity` names the sender among those that the camera hears.
  explicit CPCMUPacketBuilder(uint32_t identity) : m_dwIdentity(identity) {}

  // The next packet, valid until the next call; empty when the sound does not fit into one. `milliseconds`:
  // the sender's time.
  std::span<const unsigned char> Build(std::span<const unsigned char> ulaw, unsigned milliseconds);

 private:
  const uint32_t m_dwIdentity;
  uint16_t m_wSequence = 0;
  unsigned char m_Packet[PACKET_BYTES];
};
