// How far a camera has been loaded: one bit for each step done, in one atomic word.
#pragma once

#include <atomic>
#include <cstdint>

// Bits of the run-state word.
inline constexpr unsigned STATE_SERVICE_URL = 0x1;  // discovered cameras
inline constexpr unsigned STATE_TIME_SYNC = 0x2;    // goes every ten minutes
inline constexpr unsigned STATE_MEDIA_URLS = 0x4;
inline constexpr unsigned STATE_ENCODERS = 0x10;
inline constexpr unsigned STATE_PROFILES = 0x20;
inline constexpr unsigned STATE_SNAPSHOTS = 0x40;
inline constexpr unsigned STATE_STREAM_URIS = 0x80;
inline constexpr unsigned STATE_DEVICE_INFO = 0x200;  // static cameras
inline constexpr unsigned STATE_PTZ = 0x400;
inline constexpr unsigned STATE_EVENTS = 0x800;  // subscribed, or tried to; the listener ends with it
inline constexpr unsigned STATE_CAPABILITIES = 0x1000;
inline constexpr unsigned STATE_DVR_REQUESTED = 0x2000;
inline constexpr unsigned STATE_DVR_STARTED = 0x4000;

// Any thread may read and reset it. Resets are counted, so that a step which began before a reset cannot leave
// its bit in the cleared word.
class CRunState {
 public:
  using Epoch = uint32_t;

  unsigned Bits() const { return m_dwWord.load() & BITS; }
  bool Has(unsigned bits) const { return (m_dwWord.load() & bits) == bits; }
  // Likewise, and no reset came since `since`, a value of Now().
  bool HasSince(unsigned bits, Epoch since) const {
    const uint32_t word = m_dwWord.load();
    return (word & bits) == bits && (word & ~BITS) == since;
  }
  Epoch Now() const { return m_dwWord.load() & ~BITS; }

  void Reset() {
    uint32_t word = m_dwWord.load();
    while (!m_dwWord.compare_exchange_weak(word, (word & ~BITS) + ONE_RESET)) {
    }
  }

  // Sets the bits unless a reset came since `since`, a value of Now(); false when one did.
  bool Set(unsigned bits, Epoch since) {
    uint32_t word = m_dwWord.load();
    do {
      if ((word & ~BITS) != since) return false;
    } while (!m_dwWord.compare_exchange_weak(word, word | bits));
    return true;
  }
  void Clear(unsigned bits) { m_dwWord.fetch_and(~bits); }

  bool WantsDVRStart() const { return WantsDVRStart(m_dwWord.load()); }  // requested and not started
  // Turns a requested DVR start into a started one; true for the caller that did so.
  bool TakeDVRRequest() {
    uint32_t word = m_dwWord.load();
    do {
      if (!WantsDVRStart(word)) return false;
    } while (!m_dwWord.compare_exchange_weak(word, (word & ~STATE_DVR_REQUESTED) | STATE_DVR_STARTED));
    return true;
  }

 private:
  static constexpr uint32_t BITS = 0xFFFF;  // the state; above it the count of resets
  static constexpr uint32_t ONE_RESET = 0x10000;
  static bool WantsDVRStart(uint32_t word) {
    return (word & (STATE_DVR_REQUESTED | STATE_DVR_STARTED)) == STATE_DVR_REQUESTED;
  }
  std::atomic<uint32_t> m_dwWord{0};
};
