// SHA-1 (FIPS 180-1) of a stream of bytes, with two length bytes of long messages exchanged: see pad().
#pragma once

#include <cstdint>

class SHA1 {
 public:
  SHA1();
  virtual ~SHA1();

  void reset();
  void input(const unsigned char* data, unsigned length);
  void input(const char* data, unsigned length);
  void input(char c);
  SHA1& operator<<(const char* text);  // the bytes before the NUL

  // Five words in host order. False, and nothing copied, when input came after an earlier call or there was too
  // much of it. For 8192 bytes and more the result is not the standard's: see pad().
  bool computeHash(unsigned int* digest);

 private:
  void pad();
  void processBlock();
  static uint32_t circularShift(int bits, uint32_t word);

  uint32_t m_H[5];
  uint32_t m_dwLengthLow, m_dwLengthHigh;  // in bits
  unsigned char m_Block[64];
  int m_iBlockIndex;
  bool m_bComputed;
  bool m_bCorrupted;
};
