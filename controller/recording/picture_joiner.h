// Joins the slices of an H.264 picture, which arrive one by one, into one piece.
#pragma once

#include "controller/recording/picture_info.h"

#include <cstdint>
#include <optional>
#include <vector>

struct CH264Picture {
  std::vector<unsigned char> Data;  // Annex B
  bool Key = false;                 // an IDR picture
  int Slices = 0;
  int64_t Arrival = 0;  // of its first slice, microseconds
};

class CPictureJoiner {
 public:
  // Takes one slice, with what stands before it. Returns the picture before it when this slice begins a new
  // one.
  std::optional<CH264Picture> Add(CBytes piece, bool key, int64_t arrival);

  // The picture under way, at the end of a stream: only its successor would prove it complete, so it counts
  // when it has as many slices as the picture before it.
  std::optional<CH264Picture> Finish();

  // Pieces were lost: the picture under way is dropped, and slices are too until one begins a picture.
  void Discard() { m_Pending.reset(); }

 private:
  std::optional<CH264Picture> m_Pending;
  int m_iSlicesBefore = 1;
};
