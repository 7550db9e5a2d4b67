// Pictures in I420 (Y, then U and V at half size, rows without padding) and what is drawn into them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct CColor {
  uint8_t Y, U, V;
};

struct CPicture {
  int Width = 0, Height = 0;  // both even
  std::vector<uint8_t> Bytes;

  void Resize(int w, int h);
  uint8_t* Y() { return Bytes.data(); }
  uint8_t* U() { return Bytes.data() + Width * Height; }
  uint8_t* V() { return U() + Width * Height / 4; }
  const uint8_t* Y() const { return Bytes.data(); }
};

// Fills the part of the rectangle that lies inside the picture.
void FillRect(CPicture& picture, int x, int y, int w, int h, const CColor& color);
// Capitals, digits and ":-./" in a 5 by 7 face, each dot `scale` pixels wide; other characters are blank.
void DrawLabel(CPicture& picture, int x, int y, int scale, const std::string& text, const CColor& color);
int LabelWidth(const std::string& text, int scale);

// A baseline JPEG (4:2:0, standard Huffman tables) of the picture; quality 1 to 100.
std::string EncodeJPEG(const CPicture& picture, int quality);
