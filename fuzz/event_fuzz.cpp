// What a sender may send to a camera's event port: in pieces of every size, and what the camera makes of it.
#include "camera/ONVIFCam.h"
#include "camera/notification_framer.h"
#include "fuzz/fuzz_input.h"
#include "host/system/event_server.h"

#include <string>
#include <string_view>

namespace {

using Result = CNotificationFramer::Result;

constexpr std::string_view HEADER_END = "\r\n\r\n";

// Feeds the bytes, and the end of the connection when they do not suffice.
Result Feed(CNotificationFramer* framer, std::string_view bytes, size_t piece) {
  framer->Begin();
  Result result = Result::MORE;
  while (result == Result::MORE) {
    const std::span<char> space = framer->Space();
    const size_t count = std::min({piece, space.size(), bytes.size()});
    std::copy_n(bytes.begin(), count, space.begin());
    bytes.remove_prefix(count);
    result = framer->Received(static_cast<ssize_t>(count));
  }
  return result;
}

std::string Text(std::span<const char> body) {
  return {body.begin(), body.end()};
}

CONVIFCam* Camera() {
  static CSystemComponentDef definition(CONVIFCam::TYPE_STATIC, "camera", "", 0, 0);
  static auto* const camera = new CONVIFCam(&definition);
  return camera;
}

// A level is set, with one event for motion, or nothing changes.
void Process(std::span<char> body) {
  const int before = Camera()->MotionLevel();
  Camera()->ProcessEvent(body.data(), static_cast<int>(body.size()));
  const int level = Camera()->MotionLevel(), events = CEventServer::Instance()->DispatchEvents();
  Require(events == 1 ? level == 100 : events == 0 && (level == before || level == 0));
}

}  // namespace

// The first byte is the size of the pieces.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CFuzzInput input(data, size);
  const size_t piece = input.Byte() + 1;
  const auto rest = input.Take(input.Size());
  const std::string_view bytes(reinterpret_cast<const char*>(rest.data()), rest.size());
  CNotificationFramer whole, cut;
  const Result atOnce = Feed(&whole, bytes, bytes.size() + 1), inPieces = Feed(&cut, bytes, piece);
  if (atOnce == Result::COMPLETE) Require(inPieces == Result::COMPLETE);
  const size_t header = bytes.find(HEADER_END);
  for (const std::span<char> body : {whole.Body(), cut.Body()}) {
    Require(body.size() < CNotificationFramer::BUFFER_BYTES);
    if (!body.empty()) Require(bytes.substr(header + HEADER_END.size()).starts_with(Text(body)));
  }
  // A length in the header counts the same however the bytes are cut.
  if (atOnce == Result::COMPLETE && bytes.find("Content-Length") < header)
    Require(Text(whole.Body()) == Text(cut.Body()));
  Process(cut.Body());
  return 0;
}
