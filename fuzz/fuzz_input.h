// Takes a fuzz input apart.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

// Ends the run when an invariant is broken.
inline void Require(bool holds) {
  if (!holds) std::abort();
}

class CFuzzInput {
 public:
  CFuzzInput(const uint8_t* data, size_t size) : m_Left(data, size) {}
  bool IsEmpty() const { return m_Left.empty(); }
  size_t Size() const { return m_Left.size(); }
  unsigned Byte() { return m_Left.empty() ? 0 : Take(1)[0]; }
  std::span<const uint8_t> Take(size_t bytes) {
    const std::span<const uint8_t> taken = m_Left.first(std::min(bytes, m_Left.size()));
    m_Left = m_Left.subspan(taken.size());
    return taken;
  }
  // A piece with its length, 0 to 65535, before it.
  std::span<const uint8_t> Piece() {
    const unsigned high = Byte();
    return Take(high * 256 + Byte());
  }

 private:
  std::span<const uint8_t> m_Left;
};
