#include "host/intercom/g711.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

namespace {

// The segments of the characteristic meet at powers of two once this has been added.
constexpr int BIAS = 0x84;
constexpr int CLIP = 32635;  // the largest magnitude that stays within the last segment

unsigned char Encode(int sample) {
  const unsigned sign = sample < 0 ? 0x80 : 0;
  const unsigned magnitude = static_cast<unsigned>(std::min(std::abs(sample), CLIP) + BIAS);
  const unsigned width = std::max(static_cast<unsigned>(std::bit_width(magnitude)), 8U);  // the bias makes it 8
  const unsigned segment = width - 8;
  const unsigned step = (magnitude >> (segment + 3)) & 0xF;
  return static_cast<unsigned char>(~(sign | (segment << 4) | step));
}

short Decode(unsigned char code) {
  const unsigned bits = static_cast<unsigned char>(~code);
  const int magnitude = static_cast<int>((((bits & 0xFU) << 3) + BIAS) << ((bits >> 4) & 7)) - BIAS;
  return static_cast<short>((bits & 0x80) != 0 ? -magnitude : magnitude);
}

}  // namespace

int G711::ULawEncode(unsigned char* out, const short* pcm, unsigned pcmBytes) {
  const unsigned samples = pcmBytes / 2;
  std::transform(pcm, pcm + samples, out, Encode);
  return static_cast<int>(samples);
}

int G711::ULawDecode(short* out, const unsigned char* ulaw, unsigned ulawBytes) {
  std::transform(ulaw, ulaw + ulawBytes, out, Decode);
  return static_cast<int>(ulawBytes * 2);
}
