// What the receiving side costs: sessions over loopback sockets at saturation, and its parts without sockets.
#include "host/video/depacketizer.h"
#include "rtsp/access_unit.h"
#include "rtsp/interleaved_framer.h"
#include "rtsp/jpeg_assembler.h"
#include "rtsp/rtsp.h"
#include "util/rtp.h"

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr size_t PACKET_BYTES = 1412;
constexpr int WAIT_MS = 2000;

sockaddr_in Loopback(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

std::string RTPPacket(int payloadType, unsigned sequence, const std::string& payload) {
  std::string packet(12, 0);
  packet[0] = static_cast<char>(0x80);
  packet[1] = static_cast<char>(payloadType);
  packet[2] = static_cast<char>(sequence >> 8);
  packet[3] = static_cast<char>(sequence);
  return packet + payload;
}

std::string InterleavedBlock(int frames) {
  std::string block;
  for (int i = 0; i < frames; ++i)
    block += std::string{'$', 0, static_cast<char>(PACKET_BYTES >> 8), static_cast<char>(PACKET_BYTES & 0xFF)} +
             RTPPacket(96, static_cast<unsigned>(i), std::string(PACKET_BYTES - 12, 'x'));
  return block;
}

// A camera that answers every request with success and floods the stream from PLAY until it is closed.
class CFlood {
 public:
  explicit CFlood(RTP_TRANSPORT transport)
      : m_Transport(transport), m_iListen(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof address;
    if (bind(m_iListen, reinterpret_cast<sockaddr*>(&address), length) == 0) listen(m_iListen, 1);
    getsockname(m_iListen, reinterpret_cast<sockaddr*>(&address), &length);
    m_URL = "rtsp://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/live";
    m_Thread = std::thread([this] { Serve(); });
  }
  ~CFlood() {
    m_bEnd = true;
    shutdown(m_iListen, SHUT_RDWR);
    m_Thread.join();
    close(m_iListen);
  }
  const char* URL() const { return m_URL.c_str(); }

 private:
  void Serve() {
    const int peer = accept(m_iListen, nullptr, nullptr);
    char request[2048];
    for (ssize_t n; (n = recv(peer, request, sizeof request - 1, 0)) > 0;) {
      request[n] = 0;
      const char reply[] = "RTSP/1.0 200 OK\r\nSession: 1\r\n\r\n";
      send(peer, reply, sizeof reply - 1, MSG_NOSIGNAL);
      if (const char* port = std::strstr(request, "client_port="))
        m_Port = static_cast<unsigned short>(std::atoi(port + 12));
      if (std::strncmp(request, "PLAY", 4) == 0) break;
    }
    m_Transport == RTP_TRANSPORT_TCP ? FloodTCP(peer) : FloodUDP();
    close(peer);
  }
  void FloodTCP(int peer) {
    const std::string block = InterleavedBlock(64);
    while (!m_bEnd &&
           send(peer, block.data(), block.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(block.size())) {
    }
  }
  void FloodUDP() {
    const int udp = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in to = Loopback(m_Port);
    const std::string packet = RTPPacket(96, 0, std::string(PACKET_BYTES - 12, 'x'));
    while (!m_bEnd)
      sendto(udp, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    close(udp);
  }

  const RTP_TRANSPORT m_Transport;
  const int m_iListen;
  std::string m_URL;
  unsigned short m_Port = 0;
  std::atomic<bool> m_bEnd{false};
  std::thread m_Thread;
};

void Receive(benchmark::State& state, RTP_TRANSPORT transport) {
  CFlood camera(transport);
  {
    CRTSPProfile profile;
    profile.ControlURL(camera.URL());
    CRTSP session(camera.URL(), camera.URL(), transport, "", "", -1, nullptr, nullptr);
    if (!session.Login() || !session.Init(&profile) || !session.InitSession())
      state.SkipWithError("no session");
    unsigned char packet[2048];
    for (auto _ : state)
      if (session.WaitNextPacket(packet, sizeof packet, WAIT_MS) != PACKET_BYTES) state.SkipWithError("lost");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(PACKET_BYTES));
}

void InterleavedReceive(benchmark::State& state) {
  Receive(state, RTP_TRANSPORT_TCP);
}
BENCHMARK(InterleavedReceive);

void UDPReceive(benchmark::State& state) {
  Receive(state, RTP_TRANSPORT_UDP);
}
BENCHMARK(UDPReceive);

// Framing alone, with the copy to the caller's buffer, a picture at a time.
void Framing(benchmark::State& state) {
  const std::string block = InterleavedBlock(16);
  CInterleavedFramer framer;
  unsigned char packet[2048];
  for (auto _ : state) {
    std::memcpy(framer.Room().data(), block.data(), block.size());
    framer.Added(block.size());
    for (CInterleavedFramer::Frame frame; framer.Next(sizeof packet, &frame);)
      std::memcpy(packet, frame.Data.data(), frame.Data.size());
    benchmark::DoNotOptimize(packet);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 16);
}
BENCHMARK(Framing);

// One 640 x 480 picture of 42 kB in 30 packets.
void JPEGReassembly(benchmark::State& state) {
  std::vector<std::string> packets;
  for (unsigned i = 0; i < 30; ++i) {
    const size_t offset = i * 1392;
    const char header[] = {0,
                           static_cast<char>(offset >> 16),
                           static_cast<char>(offset >> 8),
                           static_cast<char>(offset),
                           1,
                           50,
                           80,
                           60};
    packets.push_back(RTPPacket(26, i, std::string(header, sizeof header) + std::string(1392, 'x')));
  }
  CJPEGAssembler assembler;
  size_t bytes = 0;
  for (auto _ : state)
    for (const std::string& packet : packets) {
      assembler.Add(reinterpret_cast<const unsigned char*>(packet.data()), static_cast<int>(packet.size()));
      bytes += assembler.Picture().size();
    }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(JPEGReassembly);

// A second of 1080p H.264 at 4 Mbit/s from RTP packets to recorder pieces: a key picture of 100 kB with its
// parameter sets and 24 slices of 16 kB.
void AccessUnits(benchmark::State& state) {
  std::vector<std::string> packets;
  unsigned sequence = 0;
  const auto add = [&](const std::string& payload) { packets.push_back(RTPPacket(96, sequence++, payload)); };
  const auto fragments = [&](char type, int count) {
    for (int i = 0; i < count; ++i) {
      const int edge = (i == 0 ? 0x80 : 0) | (i == count - 1 ? 0x40 : 0);
      add(std::string{0x7C, static_cast<char>(edge | type)} + std::string(1400, 'x'));
    }
  };
  add(std::string("\x67", 1) + std::string(20, 's'));
  add(std::string("\x68", 1) + std::string(5, 'p'));
  fragments(5, 71);
  for (int i = 0; i < 24; ++i) fragments(1, 11);

  constexpr int NAL_BYTES = 128000;
  std::vector<unsigned char> nal(NAL_BYTES);
  CH264Depacketizer depacketizer(-1);
  CAccessUnitCollector collector;
  size_t bytes = 0;
  for (auto _ : state) {
    for (std::string& packet : packets) {
      packet[2] = static_cast<char>(sequence >> 8);
      packet[3] = static_cast<char>(sequence++);
      const int length = depacketizer.ProcessRTP(reinterpret_cast<const unsigned char*>(packet.data()),
                                                 static_cast<int>(packet.size()), nal.data(), NAL_BYTES);
      if (length == 0) continue;
      collector.Add(nal.data(), static_cast<size_t>(length));
      bytes += collector.Unit().size();
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(AccessUnits);

}  // namespace

BENCHMARK_MAIN();
