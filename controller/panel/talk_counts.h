// What was said and heard in all talks with one door station.
#pragma once

#include <atomic>
#include <cstdint>

// Written by the panel's sound threads, read by any.
struct CTalkCounts {
  std::atomic<int64_t> SpeakerPackets{0};     // sent to it
  std::atomic<int64_t> MicrophonePackets{0};  // heard of it
  std::atomic<int64_t> Lost{0};               // holes in the numbers of what was heard
  std::atomic<int> LongestGapMs{0};           // in what was heard
};
