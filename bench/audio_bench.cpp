// Speech from an intercom client to a camera's speaker: what one packet of 20 ms costs, and from that one hour
// of talk and how many cameras one core carries at once.
#include "audio/rtp_packet.h"
#include "audio/speech_transcoder.h"
#include "host/net/socket.h"
#include "util/gxtimer.h"
#include "util/owned_socket.h"

#include <benchmark/benchmark.h>
#include <opus/opus.h>
#include <poll.h>
#include <sys/socket.h>

#include <cmath>
#include <cstdlib>
#include <vector>

namespace {

constexpr int INPUT_HZ = 48000, FRAME = INPUT_HZ / 50, BITRATE = 24000;
constexpr double PACKET_SECONDS = 0.020;

using Packets = std::vector<std::vector<unsigned char>>;

// Voiced syllables with a gliding pitch, hissing consonants and short pauses: loads the decoder as speech does.
double VoiceAt(int sample) {
  const double t = static_cast<double>(sample) / INPUT_HZ, syllable = std::fmod(t, 0.25) / 0.25;
  if (std::fmod(t, 3.0) > 2.5) return 0;
  const double noise = static_cast<double>(rand()) / RAND_MAX - 0.5;
  if (syllable < 0.25) return 3000 * noise;
  const double phase = 2 * M_PI * (120 * t - 4 * std::cos(2 * M_PI * t) / M_PI);
  double voice = 0;
  for (int harmonic = 1; harmonic <= 20; ++harmonic) voice += std::sin(phase * harmonic) / harmonic;
  return 5000 * voice * std::sin(M_PI * syllable) + 200 * noise;
}

// Half a minute of RTP packets.
const Packets& Speech() {
  static const Packets packets = [] {
    int error = OPUS_OK, sample = 0;
    OpusEncoder* encoder = opus_encoder_create(INPUT_HZ, 1, OPUS_APPLICATION_VOIP, &error);
    opus_encoder_ctl(encoder, OPUS_SET_BITRATE(BITRATE));
    Packets made(1500, std::vector<unsigned char>(1500));
    for (std::vector<unsigned char>& packet : made) {
      short pcm[FRAME];
      for (short& value : pcm) value = static_cast<short>(VoiceAt(sample++));
      const int bytes = opus_encode(encoder, pcm, FRAME, packet.data() + RTP_HEADER_BYTES, 1400);
      packet.resize(RTP_HEADER_BYTES + static_cast<size_t>(std::max(bytes, 0)));
    }
    opus_encoder_destroy(encoder);
    return made;
  }();
  return packets;
}

void Report(benchmark::State& state) {
  using Counter = benchmark::Counter;
  state.counters["hour_s"] =
      Counter(PACKET_SECONDS / 3600, Counter::kIsIterationInvariantRate | Counter::kInvert);
  state.counters["cameras"] = Counter(PACKET_SECONDS, Counter::kIsIterationInvariantRate);
}

// Decoding, level, encoding and the RTP header.
void SpeechPacket(benchmark::State& state) {
  const Packets& speech = Speech();
  CSpeechTranscoder transcoder;
  CPCMUPacketBuilder packets(1);
  transcoder.Open();
  unsigned count = 0;
  for (auto _ : state) {
    const int samples = transcoder.Decode(CSpeechTranscoder::Payload(speech[count % speech.size()]));
    if (samples != 160) state.SkipWithError("not decoded");
    benchmark::DoNotOptimize(transcoder.Level());
    benchmark::DoNotOptimize(packets.Build(transcoder.Encode(), ++count * 20).data());
  }
  Report(state);
}

// The same with the system calls of a call's loop: wait, receive, send.
void SpeechThroughSockets(benchmark::State& state) {
  const Packets& speech = Speech();
  int pair[2];
  if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair) != 0) return state.SkipWithError("no sockets");
  const COwnedSocket talker(pair[0]), source(pair[1]), out(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      speaker(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  socklen_t length = sizeof address;
  SetIP(127, 0, 0, 1, reinterpret_cast<sockaddr*>(&address));
  bind(speaker.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  getsockname(speaker.Get(), reinterpret_cast<sockaddr*>(&address), &length);

  CSpeechTranscoder transcoder;
  CPCMUPacketBuilder packets(1);
  const CGXTimer timer;
  transcoder.Open();
  unsigned count = 0;
  unsigned char packet[2048];
  for (auto _ : state) {
    const std::vector<unsigned char>& said = speech[count++ % speech.size()];
    send(talker.Get(), said.data(), said.size(), MSG_DONTWAIT);
    pollfd waits[] = {{source.Get(), POLLIN, 0}, {out.Get(), POLLIN, 0}};
    poll(waits, 2, 250);
    const ssize_t received = recv(source.Get(), packet, sizeof packet, MSG_DONTWAIT);
    if (received < RTP_HEADER_BYTES) return state.SkipWithError("not received");
    transcoder.Decode(CSpeechTranscoder::Payload({packet, static_cast<size_t>(received)}));
    const auto built = packets.Build(transcoder.Encode(), timer.GXTickCount());
    if (sendto(out.Get(), built.data(), built.size(), MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address),
               sizeof address) != static_cast<ssize_t>(built.size()))
      return state.SkipWithError("not sent");
  }
  Report(state);
}

BENCHMARK(SpeechPacket)->Unit(benchmark::kMicrosecond);
BENCHMARK(SpeechThroughSockets)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
