#include "sim/picture.h"

#include <jpeglib.h>
#include <stdio.h>  // jpeglib.h needs FILE

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int FACE_WIDTH = 5, FACE_HEIGHT = 7;

struct CGlyph {
  char Character;
  uint8_t Rows[FACE_HEIGHT];  // five bits each, the leftmost dot highest
};

constexpr CGlyph FACE[] = {
    {'0', {0x0e, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0e}}, {'1', {0x04, 0x0c, 0x04, 0x04, 0x04, 0x04, 0x0e}},
    {'2', {0x0e, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1f}}, {'3', {0x1f, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0e}},
    {'4', {0x02, 0x06, 0x0a, 0x12, 0x1f, 0x02, 0x02}}, {'5', {0x1f, 0x10, 0x1e, 0x01, 0x01, 0x11, 0x0e}},
    {'6', {0x06, 0x08, 0x10, 0x1e, 0x11, 0x11, 0x0e}}, {'7', {0x1f, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0e, 0x11, 0x11, 0x0e, 0x11, 0x11, 0x0e}}, {'9', {0x0e, 0x11, 0x11, 0x0f, 0x01, 0x02, 0x0c}},
    {'A', {0x0e, 0x11, 0x11, 0x1f, 0x11, 0x11, 0x11}}, {'B', {0x1e, 0x11, 0x11, 0x1e, 0x11, 0x11, 0x1e}},
    {'C', {0x0e, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0e}}, {'D', {0x1c, 0x12, 0x11, 0x11, 0x11, 0x12, 0x1c}},
    {'E', {0x1f, 0x10, 0x10, 0x1e, 0x10, 0x10, 0x1f}}, {'F', {0x1f, 0x10, 0x10, 0x1e, 0x10, 0x10, 0x10}},
    {'G', {0x0e, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0f}}, {'H', {0x11, 0x11, 0x11, 0x1f, 0x11, 0x11, 0x11}},
    {'I', {0x0e, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0e}}, {'J', {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0c}},
    {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}}, {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1f}},
    {'M', {0x11, 0x1b, 0x15, 0x15, 0x11, 0x11, 0x11}}, {'N', {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11}},
    {'O', {0x0e, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0e}}, {'P', {0x1e, 0x11, 0x11, 0x1e, 0x10, 0x10, 0x10}},
    {'Q', {0x0e, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0d}}, {'R', {0x1e, 0x11, 0x11, 0x1e, 0x14, 0x12, 0x11}},
    {'S', {0x0f, 0x10, 0x10, 0x0e, 0x01, 0x01, 0x1e}}, {'T', {0x1f, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    {'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0e}}, {'V', {0x11, 0x11, 0x11, 0x11, 0x11, 0x0a, 0x04}},
    {'W', {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0a}}, {'X', {0x11, 0x11, 0x0a, 0x04, 0x0a, 0x11, 0x11}},
    {'Y', {0x11, 0x11, 0x11, 0x0a, 0x04, 0x04, 0x04}}, {'Z', {0x1f, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1f}},
    {':', {0x00, 0x0c, 0x0c, 0x00, 0x0c, 0x0c, 0x00}}, {'-', {0x00, 0x00, 0x00, 0x1f, 0x00, 0x00, 0x00}},
    {'.', {0x00, 0x00, 0x00, 0x00, 0x00, 0x0c, 0x0c}}, {'/', {0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x00}},
};

const CGlyph* FindGlyph(char character) {
  const char wanted =
      character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
  for (const CGlyph& glyph : FACE)
    if (glyph.Character == wanted) return &glyph;
  return nullptr;
}

void FillPlane(uint8_t* plane, int stride, int left, int top, int right, int bottom, uint8_t value) {
  for (int y = top; y < bottom; ++y)
    std::memset(plane + y * stride + left, value, static_cast<size_t>(right - left));
}

// Hands one band of 16 lines to the compressor; lines below the picture repeat its last one.
void WriteBand(jpeg_compress_struct& jpeg, const CPicture& picture, int top) {
  JSAMPROW y[16], u[8], v[8];
  uint8_t* base = const_cast<uint8_t*>(picture.Bytes.data());  // the compressor only reads
  uint8_t* chroma = base + picture.Width * picture.Height;
  const int half = picture.Width / 2, halfHeight = picture.Height / 2;
  for (int i = 0; i < 16; ++i) y[i] = base + std::min(top + i, picture.Height - 1) * picture.Width;
  for (int i = 0; i < 8; ++i) {
    u[i] = chroma + std::min(top / 2 + i, halfHeight - 1) * half;
    v[i] = u[i] + half * halfHeight;
  }
  JSAMPARRAY planes[3] = {y, u, v};
  jpeg_write_raw_data(&jpeg, planes, 16);
}

}  // namespace

void CPicture::Resize(int w, int h) {
  Width = w;
  Height = h;
  Bytes.resize(static_cast<size_t>(w * h * 3 / 2));
}

void FillRect(CPicture& picture, int x, int y, int w, int h, const CColor& color) {
  const int left = std::clamp(x, 0, picture.Width), right = std::clamp(x + w, left, picture.Width);
  const int top = std::clamp(y, 0, picture.Height), bottom = std::clamp(y + h, top, picture.Height);
  FillPlane(picture.Y(), picture.Width, left, top, right, bottom, color.Y);
  FillPlane(picture.U(), picture.Width / 2, left / 2, top / 2, right / 2, bottom / 2, color.U);
  FillPlane(picture.V(), picture.Width / 2, left / 2, top / 2, right / 2, bottom / 2, color.V);
}

void DrawLabel(CPicture& picture, int x, int y, int scale, const std::string& text, const CColor& color) {
  for (const char character : text) {
    if (const CGlyph* glyph = FindGlyph(character))
      for (int row = 0; row < FACE_HEIGHT; ++row)
        for (int dot = 0; dot < FACE_WIDTH; ++dot)
          if ((glyph->Rows[row] >> (FACE_WIDTH - 1 - dot) & 1) != 0)
            FillRect(picture, x + dot * scale, y + row * scale, scale, scale, color);
    x += (FACE_WIDTH + 1) * scale;
  }
}

int LabelWidth(const std::string& text, int scale) {
  return static_cast<int>(text.size()) * (FACE_WIDTH + 1) * scale;
}

std::string EncodeJPEG(const CPicture& picture, int quality) {
  jpeg_compress_struct jpeg{};
  jpeg_error_mgr errors{};
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_compress(&jpeg);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&jpeg, &out, &size);
  jpeg.image_width = static_cast<JDIMENSION>(picture.Width);
  jpeg.image_height = static_cast<JDIMENSION>(picture.Height);
  jpeg.input_components = 3;
  jpeg.in_color_space = JCS_YCbCr;
  jpeg_set_defaults(&jpeg);  // 4:2:0 and the standard tables
  jpeg_set_quality(&jpeg, quality, TRUE);
  jpeg.raw_data_in = TRUE;
  jpeg.dct_method = JDCT_IFAST;
  jpeg_start_compress(&jpeg, TRUE);
  while (jpeg.next_scanline < jpeg.image_height) WriteBand(jpeg, picture, static_cast<int>(jpeg.next_scanline));
  jpeg_finish_compress(&jpeg);
  jpeg_destroy_compress(&jpeg);
  std::string text(reinterpret_cast<const char*>(out), size);
  std::free(out);
  return text;
}
