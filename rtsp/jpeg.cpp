#include "rtsp/jpeg.h"

#include "util/bytes.h"

#include <algorithm>
#include <cstring>

const int jpeg_luma_quantizer[JPEG_TABLE_BYTES] = {
    16, 11, 10, 16, 24,  40,  51,  61,   //
    12, 12, 14, 19, 26,  58,  60,  55,   //
    14, 13, 16, 24, 40,  57,  69,  56,   //
    14, 17, 22, 29, 51,  87,  80,  62,   //
    18, 22, 37, 56, 68,  109, 103, 77,   //
    24, 35, 55, 64, 81,  104, 113, 92,   //
    49, 64, 78, 87, 103, 121, 120, 101,  //
    72, 92, 95, 98, 112, 100, 103, 99,
};

const int jpeg_chroma_quantizer[JPEG_TABLE_BYTES] = {
    17, 18, 24, 47, 99, 99, 99, 99,  //
    18, 21, 26, 66, 99, 99, 99, 99,  //
    24, 26, 56, 99, 99, 99, 99, 99,  //
    47, 66, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,  //
    99, 99, 99, 99, 99, 99, 99, 99,
};

namespace {

// ITU T.81 tables K.3 to K.6: codes of each length 1 to 16, and the symbols in their order.
constexpr unsigned char lum_dc_codelens[16] = {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
constexpr unsigned char lum_dc_symbols[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
constexpr unsigned char lum_ac_codelens[16] = {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d};
constexpr unsigned char lum_ac_symbols[162] = {
    0x01, 0x02, 0x03, 0x00, 0x04, 0x11, 0x05, 0x12, 0x21, 0x31, 0x41, 0x06, 0x13, 0x51, 0x61, 0x07, 0x22, 0x71,
    0x14, 0x32, 0x81, 0x91, 0xa1, 0x08, 0x23, 0x42, 0xb1, 0xc1, 0x15, 0x52, 0xd1, 0xf0, 0x24, 0x33, 0x62, 0x72,
    0x82, 0x09, 0x0a, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x34, 0x35, 0x36, 0x37,
    0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59,
    0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a, 0x83,
    0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a, 0xa2, 0xa3,
    0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xc2, 0xc3,
    0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xe1, 0xe2,
    0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf1, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa,
};
constexpr unsigned char chm_dc_codelens[16] = {0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0};
constexpr unsigned char chm_dc_symbols[12] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
constexpr unsigned char chm_ac_codelens[16] = {0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77};
constexpr unsigned char chm_ac_symbols[162] = {
    0x00, 0x01, 0x02, 0x03, 0x11, 0x04, 0x05, 0x21, 0x31, 0x06, 0x12, 0x41, 0x51, 0x07, 0x61, 0x71, 0x13, 0x22,
    0x32, 0x81, 0x08, 0x14, 0x42, 0x91, 0xa1, 0xb1, 0xc1, 0x09, 0x23, 0x33, 0x52, 0xf0, 0x15, 0x62, 0x72, 0xd1,
    0x0a, 0x16, 0x24, 0x34, 0xe1, 0x25, 0xf1, 0x17, 0x18, 0x19, 0x1a, 0x26, 0x27, 0x28, 0x29, 0x2a, 0x35, 0x36,
    0x37, 0x38, 0x39, 0x3a, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4a, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58,
    0x59, 0x5a, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6a, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7a,
    0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a,
    0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba,
    0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda,
    0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa,
};

// Appends to a header.
unsigned char* Put(unsigned char* p, std::initializer_list<int> bytes) {
  for (const int byte : bytes) *p++ = static_cast<unsigned char>(byte);
  return p;
}
unsigned char* Put(unsigned char* p, const unsigned char* data, int length) {
  std::memcpy(p, data, static_cast<size_t>(length));
  return p + length;
}

unsigned char Scaled(int entry, int scale) {
  return static_cast<unsigned char>(std::clamp((entry * scale + 50) / 100, 1, 255));
}

unsigned char* MakeFrameHeader(unsigned char* p, int type, int w, int h) {
  const int width = w * 8, height = h * 8;
  p = Put(p, {0xff, 0xc0, 0, 17, 8, height >> 8, height, width >> 8, width, 3});
  return Put(p, {0, type == 0 ? 0x21 : 0x22, 0, 1, 0x11, 1, 2, 0x11, 1});
}

}  // namespace

// The entries stay in rows although a DQT segment counts in zigzag order, as in the sample code of RFC 2435
// that cameras were built from: reordered here, they would scale other coefficients than the camera's.
void MakeTables(int q, unsigned char* lqt, unsigned char* cqt) {
  const int factor = std::clamp(q, 1, 99);
  const int scale = q <= 49 ? 5000 / factor : (100 - factor) * 2;
  for (int i = 0; i < JPEG_TABLE_BYTES; ++i) {
    lqt[i] = Scaled(jpeg_luma_quantizer[i], scale);
    cqt[i] = Scaled(jpeg_chroma_quantizer[i], scale);
  }
}

unsigned char* MakeQuantHeader(unsigned char* p, const unsigned char* qt, int tableNo) {
  p = Put(p, {0xff, 0xdb, 0, 3 + JPEG_TABLE_BYTES, tableNo});
  return Put(p, qt, JPEG_TABLE_BYTES);
}

unsigned char* MakeHuffmanHeader(unsigned char* p, const unsigned char* codelens, int ncodes,
                                 const unsigned char* symbols, int nsymbols, int tableNo, int tableClass) {
  p = Put(p, {0xff, 0xc4, 0, 3 + ncodes + nsymbols, (tableClass << 4) | tableNo});
  return Put(Put(p, codelens, ncodes), symbols, nsymbols);
}

unsigned char* MakeDRIHeader(unsigned char* p, unsigned short dri) {
  return Put(p, {0xff, 0xdd, 0, 4, dri >> 8, dri});
}

int MakeJPEGHeaders(unsigned char* p, int type, int w, int h, const unsigned char* lqt,
                    const unsigned char* cqt, unsigned short dri) {
  const unsigned char* const start = p;
  p = Put(p, {0xff, 0xd8});
  // JFIF: without it the host's viewers guess the colours and the pixel shape, each in its own way.
  p = Put(p, {0xff, 0xe0, 0, 16, 'J', 'F', 'I', 'F', 0, 1, 1, 1, 0, 96, 0, 96, 0, 0});
  p = MakeQuantHeader(p, lqt, 0);
  p = MakeQuantHeader(p, cqt, 1);
  if (dri != 0) p = MakeDRIHeader(p, dri);
  p = MakeFrameHeader(p, type, w, h);
  p = MakeHuffmanHeader(p, lum_dc_codelens, sizeof lum_dc_codelens, lum_dc_symbols, sizeof lum_dc_symbols, 0,
                        0);
  p = MakeHuffmanHeader(p, lum_ac_codelens, sizeof lum_ac_codelens, lum_ac_symbols, sizeof lum_ac_symbols, 0,
                        1);
  p = MakeHuffmanHeader(p, chm_dc_codelens, sizeof chm_dc_codelens, chm_dc_symbols, sizeof chm_dc_symbols, 1,
                        0);
  p = MakeHuffmanHeader(p, chm_ac_codelens, sizeof chm_ac_codelens, chm_ac_symbols, sizeof chm_ac_symbols, 1,
                        1);
  // The scan follows, and brings the end of the picture (EOI) with it: a second one would stand in recordings.
  p = Put(p, {0xff, 0xda, 0, 12, 3, 0, 0x00, 1, 0x11, 2, 0x11, 0, 63, 0});
  return static_cast<int>(p - start);
}
