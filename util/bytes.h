// Numbers in network byte order (big-endian) in byte buffers.
#pragma once

#include <cstdint>

inline uint16_t ReadBE16(const unsigned char* p) {
  return static_cast<uint16_t>((p[0] << 8) | p[1]);
}
inline uint32_t ReadBE24(const unsigned char* p) {
  return (static_cast<uint32_t>(p[0]) << 16) | (static_cast<uint32_t>(p[1]) << 8) | p[2];
}
inline uint32_t ReadBE32(const unsigned char* p) {
  return (static_cast<uint32_t>(p[0]) << 24) | ReadBE24(p + 1);
}

inline void WriteBE16(unsigned char* p, unsigned value) {
  p[0] = static_cast<unsigned char>(value >> 8);
  p[1] = static_cast<unsigned char>(value);
}
inline void WriteBE32(unsigned char* p, uint32_t value) {
  WriteBE16(p, value >> 16);
  WriteBE16(p + 2, value & 0xFFFF);
}
