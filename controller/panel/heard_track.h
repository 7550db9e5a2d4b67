// What is heard: G.711 mu-law RTP at 8 kHz (RFC 3551, payload type 0), put in place by number and time.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

struct GXT_RTP_PACKET;

struct CHeardCounts {
  int64_t Packets = 0;   // taken
  int64_t Lost = 0;      // holes in the numbers
  int64_t Late = 0;      // came twice, or behind a later one, and were dropped
  int LongestGapMs = 0;  // from one packet's arrival to the next
};

class CHeardTrack {
 public:
  static constexpr int MOST_FILL_MS = 1000;  // of silence in a gap; a longer one is shortened to that

  // The samples that a datagram of that moment (ms) adds, silence for a gap before it included; valid until the
  // next call. Empty for what is no such packet, or comes too late.
  std::span<const short> Take(std::span<const unsigned char> datagram, int64_t nowMs);
  const CHeardCounts& Counts() const { return m_Counts; }

 private:
  void Follow(const GXT_RTP_PACKET& packet, int64_t nowMs);

  std::vector<short> m_Samples;
  CHeardCounts m_Counts;
  bool m_bFollows = false;  // the next packet is to follow the last one
  int m_nLateInRow = 0;
  uint16_t m_wNext = 0;
  uint32_t m_dwNextTime = 0, m_dwSource = 0;
  int64_t m_nLastMs = 0;
};
