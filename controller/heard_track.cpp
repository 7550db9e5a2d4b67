#include "controller/heard_track.h"

#include "host/g711.h"

#include <algorithm>

namespace {

constexpr size_t HEADER_BYTES = 12;
constexpr unsigned PAYLOAD_PCMU = 0;
constexpr int32_t SAMPLES_PER_MS = 8;
constexpr int32_t LEAST_FILL = 10 * SAMPLES_PER_MS;  // cameras' clocks jump by a few samples
constexpr int LATE_UNTIL_ANEW = 25;                  // one after the other: the camera has begun anew

uint32_t Big(std::span<const unsigned char> bytes, size_t at, size_t count) {
  uint32_t value = 0;
  for (size_t i = 0; i < count; ++i) value = value << 8 | bytes[at + i];
  return value;
}

// The payload of an RTP packet of that type (RFC 3550 5.1, 5.3.1); empty when it is none.
std::span<const unsigned char> Payload(std::span<const unsigned char> packet) {
  if (packet.size() < HEADER_BYTES || packet[0] >> 6 != 2 || (packet[1] & 0x7Fu) != PAYLOAD_PCMU) return {};
  size_t begin = HEADER_BYTES + 4u * (packet[0] & 0x0Fu);
  if ((packet[0] & 0x10u) != 0) {
    if (packet.size() < begin + 4) return {};
    begin += 4 + 4 * size_t{Big(packet, begin + 2, 2)};
  }
  const size_t padding = (packet[0] & 0x20u) != 0 ? packet.back() : 0;
  if (packet.size() < begin + padding) return {};
  return packet.subspan(begin, packet.size() - begin - padding);
}

}  // namespace

std::span<const short> CHeardTrack::Take(std::span<const unsigned char> datagram, int64_t nowMs) {
  m_Samples.clear();
  const std::span<const unsigned char> payload = Payload(datagram);
  if (payload.empty()) return {};
  const auto number = static_cast<uint16_t>(Big(datagram, 2, 2));
  const uint32_t time = Big(datagram, 4, 4), source = Big(datagram, 8, 4);
  if (source != m_dwSource) m_bFollows = false;
  if (m_bFollows && static_cast<int16_t>(number - m_wNext) < 0) {
    ++m_Counts.Late;
    m_bFollows = ++m_nLateInRow < LATE_UNTIL_ANEW;
    return {};
  }
  Follow(number, time, source, nowMs);
  ++m_Counts.Packets;
  const size_t silence = m_Samples.size();
  m_Samples.resize(silence + payload.size());
  G711::ULawDecode(m_Samples.data() + silence, payload.data(), static_cast<unsigned>(payload.size()));
  m_dwNextTime = time + static_cast<uint32_t>(payload.size());
  return m_Samples;
}

// A packet that is taken: what is missing before it is counted, and its time filled with silence.
void CHeardTrack::Follow(uint16_t number, uint32_t time, uint32_t source, int64_t nowMs) {
  if (m_Counts.Packets > 0)
    m_Counts.LongestGapMs = std::max(m_Counts.LongestGapMs, static_cast<int>(nowMs - m_nLastMs));
  if (m_bFollows) {
    m_Counts.Lost += static_cast<uint16_t>(number - m_wNext);
    const auto missing = static_cast<int32_t>(time - m_dwNextTime);
    if (missing >= LEAST_FILL)
      m_Samples.assign(static_cast<size_t>(std::min(missing, MOST_FILL_MS * SAMPLES_PER_MS)), 0);
  }
  m_bFollows = true;
  m_nLateInRow = 0;
  m_wNext = static_cast<uint16_t>(number + 1);
  m_dwSource = source;
  m_nLastMs = nowMs;
}
