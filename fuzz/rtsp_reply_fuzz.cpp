// RTSP replies in pieces, into buffers of any size, and the values that are taken from them.
#include "fuzz/fuzz_input.h"
#include "rtsp/interleaved_framer.h"
#include "rtsp/reply_reader.h"
#include "rtsp/rtsp.h"

#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CFuzzInput input(data, size);
  const unsigned flags = input.Byte(), piece = input.Byte() + 1;
  const int capacity = static_cast<int>(input.Byte() * 8);
  std::vector<char> reply(static_cast<size_t>(capacity));
  CInterleavedFramer stream;
  CReplyReader reader(reply.data(), capacity, (flags & 1) != 0, (flags & 2) != 0 ? &stream : nullptr);

  CReplyReader::State state = CReplyReader::State::MORE;
  while (!input.IsEmpty() && (state == CReplyReader::State::MORE || state == CReplyReader::State::BODY)) {
    const std::span<char> room = reader.Room();
    if (room.empty()) break;
    const std::span<const uint8_t> bytes = input.Take(std::min<size_t>(piece, room.size()));
    std::memcpy(room.data(), bytes.data(), bytes.size());
    state = reader.Added(bytes.size());
    Require(reader.Text().size() <= reply.size());
  }
  const std::string text(reader.Text());
  char value[RTSP_VALUE_CHARS + 1];
  for (const char* key : {"Session:", "Transport", "WWW-Authenticate:"})
    Require(CRTSP::Extract(text.c_str(), key, value) == 0 || std::strlen(value) <= RTSP_VALUE_CHARS);
  if (CRTSP::ExtractParam(text.c_str(), "nonce", value) != 0) Require(std::strlen(value) <= RTSP_VALUE_CHARS);
  for (CInterleavedFramer::Frame frame; stream.Next(2048, &frame);) Require(frame.Data.size() <= 2048);
  return 0;
}
