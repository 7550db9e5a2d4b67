// What all recordings together may keep in memory while they wait for the disk.
#pragma once

#include <atomic>
#include <cstddef>

// Any thread.
class CByteBudget {
 public:
  explicit CByteBudget(size_t bytes) : m_nLeft(bytes) {}
  CByteBudget(const CByteBudget&) = delete;
  CByteBudget& operator=(const CByteBudget&) = delete;

  // False, and nothing taken, when there is not that much left.
  bool Take(size_t bytes) {
    size_t left = m_nLeft;
    while (left >= bytes)
      if (m_nLeft.compare_exchange_weak(left, left - bytes)) return true;
    return false;
  }
  void Give(size_t bytes) { m_nLeft += bytes; }  // back, what was taken
  size_t Left() const { return m_nLeft; }

  static CByteBudget* Common() {  // of the process
    static CByteBudget budget(size_t{64} << 20);
    return &budget;
  }

 private:
  std::atomic<size_t> m_nLeft;
};
