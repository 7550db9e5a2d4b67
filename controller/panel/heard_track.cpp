#include "controller/panel/heard_track.h"

#include "host/intercom/g711.h"
#include "util/rtp.h"

#include <algorithm>

namespace {

constexpr int PAYLOAD_PCMU = 0;
constexpr int32_t SAMPLES_PER_MS = 8;
constexpr int32_t LEAST_FILL = 10 * SAMPLES_PER_MS;  // cameras' clocks jump by a few samples
constexpr int LATE_UNTIL_ANEW = 25;                  // one after the other: the camera has begun anew

}  // namespace

std::span<const short> CHeardTrack::Take(std::span<const unsigned char> datagram, int64_t nowMs) {
  m_Samples.clear();
  const std::optional<GXT_RTP_PACKET> packet = ParseRTP(datagram);
  if (!packet || packet->PayloadType != PAYLOAD_PCMU) return {};
  if (packet->Source != m_dwSource) m_bFollows = false;
  if (m_bFollows && static_cast<int16_t>(packet->Sequence - m_wNext) < 0) {
    ++m_Counts.Late;
    m_bFollows = ++m_nLateInRow < LATE_UNTIL_ANEW;
    return {};
  }
  Follow(*packet, nowMs);
  ++m_Counts.Packets;
  const std::span<const unsigned char> payload = packet->Payload;
  const size_t silence = m_Samples.size();
  m_Samples.resize(silence + payload.size());
  G711::ULawDecode(m_Samples.data() + silence, payload.data(), static_cast<unsigned>(payload.size()));
  m_dwNextTime = packet->Timestamp + static_cast<uint32_t>(payload.size());
  return m_Samples;
}

// A packet that is taken: what is missing before it is counted, and its time filled with silence.
void CHeardTrack::Follow(const GXT_RTP_PACKET& packet, int64_t nowMs) {
  if (m_Counts.Packets > 0)
    m_Counts.LongestGapMs = std::max(m_Counts.LongestGapMs, static_cast<int>(nowMs - m_nLastMs));
  if (m_bFollows) {
    m_Counts.Lost += static_cast<uint16_t>(packet.Sequence - m_wNext);
    const auto missing = static_cast<int32_t>(packet.Timestamp - m_dwNextTime);
    if (missing >= LEAST_FILL)
      m_Samples.assign(static_cast<size_t>(std::min(missing, MOST_FILL_MS * SAMPLES_PER_MS)), 0);
  }
  m_bFollows = true;
  m_nLateInRow = 0;
  m_wNext = static_cast<uint16_t>(packet.Sequence + 1);
  m_dwSource = packet.Source;
  m_nLastMs = nowMs;
}
