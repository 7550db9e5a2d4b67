// A strip of black and white blocks along the top of each picture, by which a program that sees only the
// pictures can tell which of them arrived and where the camera looked. It survives JPEG and H.264 at the
// simulator's qualities.
//
// Two rows of 32 cells. Row 0: white, black, 24 bits counter, 4 bits checksum, black, white.
// Row 1: black, white, 8 bits each of pan, tilt and zoom, 4 bits checksum, white, black. Bits: white is 1,
// highest first.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

struct CFrameCode {
  uint32_t Counter = 0;                // 24 bits
  double Pan = 0, Tilt = 0, Zoom = 0;  // -1..1, -1..1, 0..1; read back to within 1/255 of the range
};

namespace frame_code {

inline constexpr int CELLS = 32, ROWS = 2, DATA_BITS = 24, CHECK_BITS = 4;

inline int CellWidth(int width) {
  return width / CELLS;
}
inline int CellHeight(int width) {
  return std::max(8, width / 64);
}
inline int StripHeight(int width) {
  return ROWS * CellHeight(width);
}

inline uint32_t Checksum(uint32_t data) {
  uint32_t sum = 5;
  for (int shift = 0; shift < DATA_BITS; shift += 4) sum = sum * 3 + (data >> shift & 15);
  return sum & 15;
}

inline uint32_t Byte(double value, double from, double to) {
  return static_cast<uint32_t>(std::lround(std::clamp((value - from) / (to - from), 0.0, 1.0) * 255));
}

inline double FromByte(uint32_t byte, double from, double to) {
  return from + (byte & 255) / 255.0 * (to - from);
}

// The 32 cells of a row, highest bit first; `flip` (0 or 1) is the row's number and exchanges its frame cells.
inline uint32_t RowBits(uint32_t data, uint32_t flip) {
  const uint32_t frame = flip == 0 ? 0x80000001u : 0x40000002u;
  return frame | (data & 0xffffffu) << 6 | Checksum(data) << 2;
}

}  // namespace frame_code

inline void DrawFrameCode(uint8_t* luma, int stride, int width, const CFrameCode& code) {
  using namespace frame_code;
  const uint32_t position = Byte(code.Pan, -1, 1) << 16 | Byte(code.Tilt, -1, 1) << 8 | Byte(code.Zoom, 0, 1);
  const uint32_t rows[ROWS] = {RowBits(code.Counter, 0), RowBits(position, 1)};
  for (int y = 0; y < StripHeight(width); ++y) {
    const uint32_t bits = rows[y / CellHeight(width)];
    for (int x = 0; x < CELLS * CellWidth(width); ++x)
      luma[y * stride + x] = (bits >> (CELLS - 1 - x / CellWidth(width)) & 1) != 0 ? 235 : 16;
  }
}

// Reads the strip of a decoded picture's luma plane. False when there is none or it is damaged.
inline bool ReadFrameCode(const uint8_t* luma, int stride, int width, int height, CFrameCode* code) {
  using namespace frame_code;
  const int w = CellWidth(width), h = CellHeight(width);
  if (w < 3 || height < StripHeight(width)) return false;
  uint32_t data[ROWS] = {};
  for (int row = 0; row < ROWS; ++row) {
    uint32_t bits = 0;
    for (int cell = 0; cell < CELLS; ++cell) {
      int sum = 0, n = 0;
      for (int y = row * h + h / 4; y < row * h + h - h / 4; ++y)
        for (int x = cell * w + w / 4; x < cell * w + w - w / 4; ++x, ++n) sum += luma[y * stride + x];
      bits = bits << 1 | (sum / n > 127 ? 1u : 0u);
    }
    data[row] = bits >> 6 & 0xffffffu;
    if (bits != RowBits(data[row], static_cast<uint32_t>(row))) return false;
  }
  *code = {data[0], FromByte(data[1] >> 16, -1, 1), FromByte(data[1] >> 8, -1, 1), FromByte(data[1], 0, 1)};
  return true;
}
