// Sequences of RTP/H.264 packets, through the depacketizer into the pieces that a recorder takes.
#include "fuzz/fuzz_input.h"
#include "host/video/depacketizer.h"
#include "rtsp/access_unit.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr int NAL_BYTES = 4096;
  CFuzzInput input(data, size);
  CH264Depacketizer depacketizer(-1);
  CAccessUnitCollector collector;
  std::vector<unsigned char> nal(NAL_BYTES);
  while (!input.IsEmpty()) {
    const std::span<const uint8_t> piece = input.Piece();
    const std::vector<uint8_t> packet(piece.begin(), piece.end());
    int length = depacketizer.ProcessRTP(packet.data(), static_cast<int>(packet.size()), nal.data(), NAL_BYTES);
    for (int units = 0; length > 0; ++units) {
      Require(length <= NAL_BYTES && units <= 65536);
      const CAccessUnitCollector::Result result = collector.Add(nal.data(), static_cast<size_t>(length));
      const bool delivers =
          result == CAccessUnitCollector::Result::SLICE || result == CAccessUnitCollector::Result::KEY;
      Require(delivers == !collector.Unit().empty() &&
              collector.Unit().size() <= CAccessUnitCollector::CAPACITY);
      length = depacketizer.ProcessRTP(nullptr, 0, nal.data(), NAL_BYTES);
    }
  }
  return 0;
}
