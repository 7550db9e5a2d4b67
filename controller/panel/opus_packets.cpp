#include "controller/panel/opus_packets.h"

#include <opus/opus.h>

#include <random>

namespace {

constexpr size_t HEADER_BYTES = 12;
constexpr unsigned char VERSION_2 = 0x80, MARKER = 0x80;
constexpr unsigned char PAYLOAD_TYPE = 111;  // dynamic
constexpr uint32_t CLOCK_HZ = 48000;         // whatever the sound's own rate is (RFC 7587 4.1)
constexpr int BITRATE = 64000;               // bit/s, no better than the G.711 that it mostly becomes

}  // namespace

void COpusPackets::CCloser::operator()(OpusEncoder* encoder) const {
  opus_encoder_destroy(encoder);
}

COpusPackets::COpusPackets() {
  int error = OPUS_OK;
  m_pEncoder.reset(opus_encoder_create(SPEECH_HZ, 1, OPUS_APPLICATION_VOIP, &error));
  if (m_pEncoder != nullptr) opus_encoder_ctl(m_pEncoder.get(), OPUS_SET_BITRATE(BITRATE));
  std::random_device random;
  m_wNumber = static_cast<uint16_t>(random());
  m_dwTime = random();
  m_dwSource = random();
}

COpusPackets::~COpusPackets() = default;

std::span<const unsigned char> COpusPackets::Next(std::span<const short, PACKET_SAMPLES> samples) {
  if (m_pEncoder == nullptr) return {};
  const opus_int32 length =
      opus_encode(m_pEncoder.get(), samples.data(), static_cast<int>(samples.size()),
                  m_Packet.data() + HEADER_BYTES, static_cast<opus_int32>(m_Packet.size() - HEADER_BYTES));
  if (length <= 0) return {};
  m_Packet[0] = VERSION_2;
  m_Packet[1] = m_bFirst ? MARKER | PAYLOAD_TYPE : PAYLOAD_TYPE;  // the beginning of a talk (RFC 3551 4.1)
  m_Packet[2] = static_cast<unsigned char>(m_wNumber >> 8);
  m_Packet[3] = static_cast<unsigned char>(m_wNumber);
  for (size_t i = 0; i < 4; ++i) {
    m_Packet[4 + i] = static_cast<unsigned char>(m_dwTime >> (24 - 8 * i));
    m_Packet[8 + i] = static_cast<unsigned char>(m_dwSource >> (24 - 8 * i));
  }
  m_bFirst = false;
  ++m_wNumber;
  m_dwTime += CLOCK_HZ * PACKET_MS / 1000;
  return {m_Packet.data(), HEADER_BYTES + static_cast<size_t>(length)};
}
