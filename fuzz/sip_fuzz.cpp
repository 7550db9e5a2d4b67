// A camera's SIP messages in pieces of any size: waiting for its answer to a call, and answering its questions.
#include "audio/sip_dialogue.h"
#include "fuzz/fuzz_input.h"

#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CFuzzInput input(data, size);
  const size_t piece = input.Byte() * 17 + 1;
  CInviteAnswer answer;
  while (!input.IsEmpty()) {
    const std::span<char> room = answer.Room();
    Require(!room.empty());
    const std::span<const uint8_t> bytes = input.Take(std::min(piece, room.size()));
    std::memcpy(room.data(), bytes.data(), bytes.size());
    answer.Added(bytes.size());
    // A tag goes into our next requests: it must not be able to add lines to them.
    Require(answer.ToTag().Str().find_first_of("\r\n") == std::string::npos);
    Require(answer.ToTag().IsEmpty() || answer.ToTag().Str().front() == ';');
  }

  const std::string text(reinterpret_cast<const char*>(data), std::min(size, SIP_MESSAGE_BYTES));
  for (const CGXString& message : {CSIPMessage::InfoAnswer(text.c_str(), "sip:us"),
                                   CSIPMessage::InfoRequest(text.c_str(), "sip:camera")}) {
    Require(message.Str().ends_with(CSIPMessage::END_OF_HEADER));
    Require(message.Str().find(CSIPMessage::END_OF_HEADER) == message.Str().size() - 4);
    Require(message.Str().size() <= 6 * SIP_MESSAGE_BYTES);
  }
  return 0;
}
