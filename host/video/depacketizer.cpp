#include "host/video/depacketizer.h"

#include "util/rtp.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <vector>

namespace {

using Bytes = std::span<const unsigned char>;

constexpr size_t START_CODE_BYTES = 3;
constexpr size_t MOST_UNIT_BYTES = 1 << 20;  // of a fragmented NAL unit; a longer one is dropped
constexpr int LATE_PACKETS = 100;            // a fragment that far behind is late or came twice (RFC 3550 A.1)

constexpr int NAL_SINGLE_FIRST = 1, NAL_SINGLE_LAST = 23;  // RFC 6184 table 1
constexpr int NAL_STAP_A = 24;
constexpr int NAL_FU_A = 28;
constexpr unsigned char NAL_TYPE_MASK = 0x1f;
constexpr unsigned char NAL_REF_MASK = 0xe0;
constexpr unsigned char FU_START = 0x80;
constexpr unsigned char FU_END = 0x40;

int NALType(unsigned char header) {
  return header & NAL_TYPE_MASK;
}
bool IsSingle(int type) {
  return type >= NAL_SINGLE_FIRST && type <= NAL_SINGLE_LAST;
}

// Where a NAL unit goes.
class CUnitWriter {
 public:
  CUnitWriter(unsigned char* out, int capacity, unsigned* tooLarge)
      : m_pTooLarge(tooLarge),
        m_pOut(out),
        m_nCapacity(out != nullptr && capacity > 0 ? static_cast<size_t>(capacity) : 0) {}

  int Write(Bytes unit) const {
    if (unit.size() + START_CODE_BYTES > m_nCapacity) return TooLarge();
    constexpr unsigned char startCode[START_CODE_BYTES] = {0, 0, 1};
    std::memcpy(m_pOut, startCode, sizeof startCode);
    std::memcpy(m_pOut + START_CODE_BYTES, unit.data(), unit.size());
    return static_cast<int>(unit.size() + START_CODE_BYTES);
  }
  int TooLarge() const {
    ++*m_pTooLarge;
    return 0;
  }

 private:
  unsigned* m_pTooLarge;
  unsigned char* m_pOut;
  size_t m_nCapacity;
};

}  // namespace

struct CH264Depacketizer::State {
  explicit State(int payloadType) : PayloadType(payloadType) {}

  int Packet(const GXT_RTP_PACKET& packet, const CUnitWriter& out);
  int NextOfAggregate(const CUnitWriter& out);
  int Fragment(const GXT_RTP_PACKET& packet, const CUnitWriter& out);
  bool Append(Bytes bytes);

  const int PayloadType;

  // The rest of a STAP-A, kept because the caller may reuse the packet's memory.
  std::vector<unsigned char> Aggregate;
  size_t AggregateAt = 0;

  // The NAL unit that is being put together from FU-A fragments. Other packets in between leave it alone: when
  // they took the place of a fragment, the next one does not have the number that is expected.
  std::vector<unsigned char> Unit;
  bool Assembling = false;
  unsigned TooLarge = 0;
  uint16_t NextSequence = 0;
};

int CH264Depacketizer::State::Packet(const GXT_RTP_PACKET& packet, const CUnitWriter& out) {
  const int type = NALType(packet.Payload[0]);
  if (type == NAL_FU_A) return Fragment(packet, out);
  if (IsSingle(type)) return out.Write(packet.Payload);
  if (type != NAL_STAP_A) return 0;
  Aggregate.assign(packet.Payload.begin() + 1, packet.Payload.end());
  return NextOfAggregate(out);
}

// RFC 6184 5.7.1. Units that do not fit, are empty or are no units are skipped; a size beyond the packet ends
// it.
int CH264Depacketizer::State::NextOfAggregate(const CUnitWriter& out) {
  const Bytes all(Aggregate);
  while (all.size() - AggregateAt > 2) {
    const size_t size = ReadBE16(all.data() + AggregateAt);
    AggregateAt += 2;
    if (size > all.size() - AggregateAt) break;
    const Bytes unit = all.subspan(AggregateAt, size);
    AggregateAt += size;
    if (unit.empty() || !IsSingle(NALType(unit[0]))) continue;
    if (const int written = out.Write(unit)) return written;
  }
  AggregateAt = all.size();
  return 0;
}

// RFC 6184 5.8. A start fragment that is also the end is not allowed there, but sent by cameras for units that
// happen to fit; it is taken as the whole unit.
int CH264Depacketizer::State::Fragment(const GXT_RTP_PACKET& packet, const CUnitWriter& out) {
  if (packet.Payload.size() < 2) return 0;
  const unsigned char indicator = packet.Payload[0], header = packet.Payload[1];
  const Bytes body = packet.Payload.subspan(2);
  if (Assembling) {
    const int distance = static_cast<int16_t>(packet.Sequence - NextSequence);
    if (distance < 0 && distance >= -LATE_PACKETS) return 0;
    if (distance != 0) Assembling = false;
  }
  const auto unitHeader = static_cast<unsigned char>((indicator & NAL_REF_MASK) | NALType(header));
  if ((header & FU_START) != 0) {
    Unit.assign(1, unitHeader);
    Assembling = IsSingle(NALType(header));
  } else if (Assembling && NALType(Unit[0]) != NALType(header)) {
    Assembling = false;
  }
  if (!Assembling) return 0;
  if (!Append(body)) return out.TooLarge();
  NextSequence = static_cast<uint16_t>(packet.Sequence + 1);
  if ((header & FU_END) == 0) return 0;
  Assembling = false;
  return out.Write(Unit);
}

bool CH264Depacketizer::State::Append(Bytes bytes) {
  if (bytes.size() > MOST_UNIT_BYTES - Unit.size()) return Assembling = false;
  Unit.insert(Unit.end(), bytes.begin(), bytes.end());
  return true;
}

CH264Depacketizer::CH264Depacketizer(int payloadType) : m_pState(std::make_unique<State>(payloadType)) {}
CH264Depacketizer::~CH264Depacketizer() = default;

unsigned CH264Depacketizer::TooLarge() const {
  return m_pState->TooLarge;
}

int CH264Depacketizer::ProcessRTP(const unsigned char* packet, int length, unsigned char* out, int capacity) {
  const CUnitWriter writer(out, capacity, &m_pState->TooLarge);
  if (packet == nullptr) return m_pState->NextOfAggregate(writer);
  m_pState->Aggregate.clear();
  m_pState->AggregateAt = 0;
  const auto parsed = ParseRTP(Bytes(packet, length > 0 ? static_cast<size_t>(length) : 0));
  if (!parsed || (m_pState->PayloadType != -1 && parsed->PayloadType != m_pState->PayloadType)) return 0;
  return m_pState->Packet(*parsed, writer);
}
