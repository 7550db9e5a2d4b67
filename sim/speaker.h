#pragma once
// A loudspeaker that is sent G.711 mu-law in RTP: what it plays is kept as a WAV file (8000 Hz, 16 bit, mono).
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

// Plays as a camera does: it begins 200 ms after the first packet, in the order of sequence numbers. Lost
// packets are silence, and when nothing is left to play there is silence until more comes.
class CSpeaker {
 public:
  using Clock = std::chrono::steady_clock;

  // Begins anew into that file ("": into none). False when it cannot be written.
  bool Open(const std::string& path);
  // One datagram that arrived at `now`.
  void Packet(const uint8_t* data, size_t size, Clock::time_point now);
  // Brings the file up to date, so that it can be played.
  void Flush();
  void Close();
  ~CSpeaker() { Close(); }
  // packets, lost, late, ignored, samples, largest_gap_ms (between two arrivals), silence_ms (put in where
  // sound was missing), level (of the latest packet, 0 to 32767), wav
  nlohmann::json ToJson() const;

 private:
  struct CCount {
    int packets = 0, lost = 0, late = 0, ignored = 0, level = 0;
    long long samples = 0, silence = 0;
    double largestGapMs = 0;
  };
  void Play(const uint8_t* ulaw, size_t size);
  void Silence(long long samples);
  void Write(const std::vector<int16_t>& pcm);

  std::string m_path;
  std::FILE* m_file = nullptr;
  CCount m_count;
  uint16_t m_expected = 0;
  size_t m_lastSize = 0;
  Clock::time_point m_first, m_last;
};

// ITU-T G.711 mu-law.
int16_t ExpandMulaw(uint8_t code);
