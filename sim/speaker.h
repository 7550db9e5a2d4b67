// A loudspeaker that is sent G.711 mu-law in RTP: what it plays is kept as a WAV file (8000 Hz, 16 bit, mono).
#pragma once

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
  nlohmann::json ToJSON() const;

 private:
  struct CCount {
    int Packets = 0, Lost = 0, Late = 0, Ignored = 0, Level = 0;
    long long Samples = 0, Silence = 0;
    double LargestGapMs = 0;
  };
  void Play(const uint8_t* ulaw, size_t size);
  void Silence(long long samples);
  void Write(const std::vector<int16_t>& pcm);

  std::string m_Path;
  std::FILE* m_PFile = nullptr;
  CCount m_Count;
  uint16_t m_WExpected = 0;
  size_t m_NLastSize = 0;
  Clock::time_point m_First, m_Last;
};

// ITU-T G.711 mu-law.
int16_t ExpandMulaw(uint8_t code);
