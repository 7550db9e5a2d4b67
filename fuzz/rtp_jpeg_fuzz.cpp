// Sequences of RTP/JPEG packets.
#include "fuzz/fuzz_input.h"
#include "rtsp/jpeg_assembler.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CFuzzInput input(data, size);
  CJPEGAssembler assembler;
  while (!input.IsEmpty()) {
    const std::span<const uint8_t> piece = input.Piece();
    const std::vector<uint8_t> packet(piece.begin(), piece.end());  // so that a read past its end is seen
    const CJPEGAssembler::Result result = assembler.Add(packet.data(), static_cast<int>(packet.size()));
    const std::span<const unsigned char> picture = assembler.Picture();
    Require((result == CJPEGAssembler::Result::PICTURE) == !picture.empty());
    if (!picture.empty())
      Require(picture.size() <= CJPEGAssembler::CAPACITY && picture[0] == 0xFF && picture[1] == 0xD8);
  }
  return 0;
}
