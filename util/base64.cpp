#include "util/base64.h"

namespace {

constexpr int MAX_INPUT = 0x3FFFFFFE;  // beyond that the length of the encoding would not fit an int
constexpr char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char FIRST = '+', LAST = 'z';
constexpr unsigned char INVALID = 0xFF;

struct CDecodeTable {
  unsigned char Value[LAST - FIRST + 1];
};

constexpr CDecodeTable MakeDecodeTable() {
  CDecodeTable table{};
  for (unsigned char& value : table.Value) value = INVALID;
  for (unsigned char i = 0; i < 64; ++i) table.Value[ALPHABET[i] - FIRST] = i;
  return table;
}

constexpr CDecodeTable DECODE = MakeDecodeTable();
static_assert(sizeof DECODE.Value == 80);

}  // namespace

char* av_base64_encode(char* out, int outSize, const unsigned char* in, int inSize) {
  if (inSize < 0 || inSize > MAX_INPUT || outSize < (inSize + 2) / 3 * 4 + 1) return nullptr;
  char* to = out;
  for (; inSize >= 3; inSize -= 3, in += 3) {
    *to++ = ALPHABET[in[0] >> 2];
    *to++ = ALPHABET[(in[0] & 0x03) << 4 | in[1] >> 4];
    *to++ = ALPHABET[(in[1] & 0x0F) << 2 | in[2] >> 6];
    *to++ = ALPHABET[in[2] & 0x3F];
  }
  if (inSize > 0) {
    const int second = inSize == 2 ? in[1] : 0;
    *to++ = ALPHABET[in[0] >> 2];
    *to++ = ALPHABET[(in[0] & 0x03) << 4 | second >> 4];
    *to++ = inSize == 2 ? ALPHABET[(second & 0x0F) << 2] : '=';
    *to++ = '=';
  }
  *to = '\0';
  return out;
}

int av_base64_decode(unsigned char* out, const char* in, int outSize) {
  unsigned bits = 0;
  int written = 0;
  for (unsigned position = 0; in[position] != '\0' && in[position] != '='; ++position) {
    const char c = in[position];
    if (c < FIRST || c > LAST || DECODE.Value[c - FIRST] == INVALID) return -1;
    bits = bits << 6 | DECODE.Value[c - FIRST];
    if ((position & 3) == 0) continue;
    if (written < outSize) out[written++] = static_cast<unsigned char>(bits >> (6 - 2 * (position & 3)));
  }
  return written;
}
