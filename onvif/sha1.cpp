#include "onvif/sha1.h"

#include "util/bytes.h"

#include <cstring>

namespace {

constexpr int BLOCK_BYTES = 64, LENGTH_OFFSET = 56;

}  // namespace

SHA1::SHA1() {
  reset();
}

SHA1::~SHA1() = default;

void SHA1::reset() {
  m_H[0] = 0x67452301;
  m_H[1] = 0xEFCDAB89;
  m_H[2] = 0x98BADCFE;
  m_H[3] = 0x10325476;
  m_H[4] = 0xC3D2E1F0;
  m_dwLengthLow = m_dwLengthHigh = 0;
  memset(m_Block, 0, sizeof m_Block);
  m_iBlockIndex = 0;
  m_bComputed = m_bCorrupted = false;
}

void SHA1::input(const unsigned char* data, unsigned length) {
  if (length == 0) return;
  if (m_bComputed) m_bCorrupted = true;
  for (; length > 0 && !m_bCorrupted; --length) {
    m_Block[m_iBlockIndex++] = *data++;
    m_dwLengthLow += 8;
    if (m_dwLengthLow == 0 && ++m_dwLengthHigh == 0) m_bCorrupted = true;
    if (m_iBlockIndex == BLOCK_BYTES) processBlock();
  }
}

void SHA1::input(const char* data, unsigned length) {
  input(reinterpret_cast<const unsigned char*>(data), length);
}

void SHA1::input(char c) {
  input(&c, 1);
}

SHA1& SHA1::operator<<(const char* text) {
  for (; *text != '\0'; ++text) input(*text);
  return *this;
}

bool SHA1::computeHash(unsigned int* digest) {
  if (m_bCorrupted) return false;
  if (!m_bComputed) {
    pad();
    m_bComputed = true;
  }
  for (int i = 0; i < 5; ++i) digest[i] = m_H[i];
  return true;
}

void SHA1::pad() {
  m_Block[m_iBlockIndex++] = 0x80;
  if (m_iBlockIndex > LENGTH_OFFSET) {
    memset(m_Block + m_iBlockIndex, 0, static_cast<size_t>(BLOCK_BYTES - m_iBlockIndex));
    processBlock();
  }
  memset(m_Block + m_iBlockIndex, 0, static_cast<size_t>(LENGTH_OFFSET - m_iBlockIndex));
  WriteBE32(m_Block + LENGTH_OFFSET, m_dwLengthHigh);
  // The two upper bytes of the low word stand the other way round. Login digests are far too short to show it;
  // digests of 8192 bytes and more would no longer match those that were made this way.
  m_Block[60] = static_cast<unsigned char>(m_dwLengthLow >> 16);
  m_Block[61] = static_cast<unsigned char>(m_dwLengthLow >> 24);
  m_Block[62] = static_cast<unsigned char>(m_dwLengthLow >> 8);
  m_Block[63] = static_cast<unsigned char>(m_dwLengthLow);
  processBlock();
}

// FIPS 180-1, 7.
void SHA1::processBlock() {
  uint32_t w[80];
  for (int t = 0; t < 16; ++t) w[t] = ReadBE32(m_Block + 4 * t);
  for (int t = 16; t < 80; ++t) w[t] = circularShift(1, w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16]);
  uint32_t a = m_H[0], b = m_H[1], c = m_H[2], d = m_H[3], e = m_H[4];
  for (int t = 0; t < 80; ++t) {
    uint32_t f, k;
    if (t < 20) {
      f = (b & c) | (~b & d);
      k = 0x5A827999;
    } else if (t < 40) {
      f = b ^ c ^ d;
      k = 0x6ED9EBA1;
    } else if (t < 60) {
      f = (b & c) | (b & d) | (c & d);
      k = 0x8F1BBCDC;
    } else {
      f = b ^ c ^ d;
      k = 0xCA62C1D6;
    }
    const uint32_t next = circularShift(5, a) + f + e + w[t] + k;
    e = d;
    d = c;
    c = circularShift(30, b);
    b = a;
    a = next;
  }
  m_H[0] += a;
  m_H[1] += b;
  m_H[2] += c;
  m_H[3] += d;
  m_H[4] += e;
  m_iBlockIndex = 0;
}

uint32_t SHA1::circularShift(int bits, uint32_t word) {
  return (word << bits) | (word >> (32 - bits));
}
