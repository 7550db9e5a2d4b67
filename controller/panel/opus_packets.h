// Speech as Opus in RTP (RFC 7587): 20 ms a packet, numbered without holes.
#pragma once

#include "controller/panel/speech.h"

#include <array>
#include <cstdint>
#include <memory>
#include <span>

struct OpusEncoder;

class COpusPackets {
 public:
  static constexpr int PACKET_MS = 20;
  static constexpr size_t PACKET_SAMPLES = SPEECH_HZ * PACKET_MS / 1000;

  COpusPackets();  // number, time and source begin at random (RFC 3550 5.1)
  ~COpusPackets();
  COpusPackets(const COpusPackets&) = delete;
  COpusPackets& operator=(const COpusPackets&) = delete;

  // The next packet, valid until the next call; empty when it could not be encoded.
  std::span<const unsigned char> Next(std::span<const short, PACKET_SAMPLES> samples);

 private:
  struct CCloser {
    void operator()(OpusEncoder* encoder) const;
  };
  std::unique_ptr<OpusEncoder, CCloser> m_pEncoder;
  uint16_t m_wNumber;
  uint32_t m_dwTime, m_dwSource;
  bool m_bFirst = true;
  std::array<unsigned char, 1276> m_Packet{};
};
