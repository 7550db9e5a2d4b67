// Interleaved framing: the frames found must not depend on the pieces in which the bytes arrive.
#include "fuzz/fuzz_input.h"
#include "rtsp/interleaved_framer.h"

#include <cstring>
#include <vector>

namespace {

std::vector<uint8_t> Frames(CFuzzInput input, size_t piece, size_t limit) {
  CInterleavedFramer framer;
  std::vector<uint8_t> found;
  while (!input.IsEmpty()) {
    const std::span<unsigned char> room = framer.Room();
    Require(!room.empty());
    const std::span<const uint8_t> bytes = input.Take(std::min(piece, room.size()));
    std::memcpy(room.data(), bytes.data(), bytes.size());
    framer.Added(bytes.size());
    for (CInterleavedFramer::Frame frame; framer.Next(limit, &frame);) {
      Require(frame.Data.size() <= limit);
      found.insert(found.end(), {frame.Channel, static_cast<uint8_t>(frame.Data.size() >> 8),
                                 static_cast<uint8_t>(frame.Data.size())});
      found.insert(found.end(), frame.Data.begin(), frame.Data.end());
    }
  }
  return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CFuzzInput input(data, size);
  const size_t piece = input.Byte() + 1, limit = input.Byte() * 8 + 1;
  Require(Frames(input, piece, limit) == Frames(input, input.Size() + 1, limit));
  return 0;
}
