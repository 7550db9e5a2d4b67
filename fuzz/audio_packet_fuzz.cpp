// Packets from an intercom client, one after another through one decoder, as a camera gets them.
#include "audio/rtp_packet.h"
#include "audio/speech_transcoder.h"
#include "audio/volume_queue.h"
#include "fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t PACKET_BYTES = 2048;
  CFuzzInput input(data, size);
  CSpeechTranscoder speech;
  CPCMUPacketBuilder packets(1);
  CVolumeQueue volume;
  speech.Open();
  for (unsigned count = 0; !input.IsEmpty(); ++count) {
    const auto packet = input.Piece();
    const auto opus = CSpeechTranscoder::Payload(packet.first(std::min(packet.size(), PACKET_BYTES)));
    if (opus.empty()) continue;
    const int samples = speech.Decode(opus);
    const size_t sounds = samples > 0 ? static_cast<size_t>(samples) : 0;
    Require(samples <= CSpeechTranscoder::MAX_SAMPLES);
    Require(speech.Level() >= 0 && speech.Level() <= 32768);
    const auto ulaw = count % 2 == 0 ? speech.Encode() : speech.Silence();
    Require(ulaw.size() == sounds);
    Require(packets.Build(ulaw, count * 20).size() == sounds + 12);
    volume.Push(speech.Level(), samples);
    Require(volume.Pop(static_cast<int>(count)) <= 32768);
  }
  return 0;
}
