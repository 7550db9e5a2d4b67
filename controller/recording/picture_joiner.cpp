#include "controller/recording/picture_joiner.h"

#include <utility>

std::optional<CH264Picture> CPictureJoiner::Add(CBytes piece, bool key, int64_t arrival) {
  const ESlice slice = SliceOf(piece);
  if (slice != ESlice::First) {
    if (slice == ESlice::Further && m_Pending) {
      m_Pending->Data.insert(m_Pending->Data.end(), piece.begin(), piece.end());
      ++m_Pending->Slices;
    }
    return std::nullopt;
  }
  std::optional<CH264Picture> done = std::exchange(m_Pending, CH264Picture{});
  m_Pending->Data.assign(piece.begin(), piece.end());
  m_Pending->Key = key;
  m_Pending->Slices = 1;
  m_Pending->Arrival = arrival;
  if (done) m_iSlicesBefore = done->Slices;
  return done;
}

std::optional<CH264Picture> CPictureJoiner::Finish() {
  std::optional<CH264Picture> last = std::exchange(m_Pending, std::nullopt);
  if (last && last->Slices < m_iSlicesBefore) last.reset();
  return last;
}
