// What can be told from the bytes of a picture: NAL units of H.264 (ITU-T H.264 Annex B, 7.3.1) and the size of
// a JPEG (ITU-T T.81 B.2.2).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

using CBytes = std::span<const unsigned char>;

inline constexpr int NAL_SLICE = 1;
inline constexpr int NAL_PARTITION_A = 2;  // to 4: partitions of one slice
inline constexpr int NAL_IDR = 5;
inline constexpr int NAL_SPS = 7;
inline constexpr int NAL_PPS = 8;

inline int NalType(CBytes unit) {
  return unit.empty() ? 0 : unit[0] & 0x1F;
}

// The units of an Annex B stream, without start codes; they point into `stream`.
std::vector<CBytes> SplitUnits(CBytes stream);

// Whether a slice of a new picture begins in these units (first_mb_in_slice is 0), one of an earlier picture
// goes on, or no slice is there.
enum class ESlice { None, First, Further };
ESlice SliceOf(CBytes stream);

// The parameter sets of these units, each once, SPS before PPS, in Annex B form; empty unless both kinds are
// there.
std::vector<unsigned char> ParameterSetsOf(CBytes stream);

struct CPictureFormat {
  int Width = 0, Height = 0;
  int64_t Interval = 0;  // between pictures, on the recording's clock; 0: unknown
};

// Of an H.264 stream, from its parameter sets and a picture. Zeros when they do not tell.
CPictureFormat H264Format(CBytes sets, CBytes picture);

// Width and height of a JPEG picture. False when it has no frame header.
bool JPEGSize(CBytes picture, int* width, int* height);
