// Calls to a camera's speaker: the SIP dialogue with a camera played by sipp, the sound that reaches it, and
// that a call may be ended at any moment.
#include "audio/audio_camera.h"
#include "audio/sip_dialogue.h"
#include "audio/sip_farewells.h"
#include "audio/vivotek_audio_out.h"
#include "host/base/trace.h"
#include "host/intercom/g711.h"
#include "host/system/system.h"
#include "tests/camera_support.h"
#include "tests/support/places.h"
#include "tests/support/scripted_server.h"
#include "util/bytes.h"

#include <opus/opus.h>

#include <cmath>
#include <cstdlib>
#include <future>
#include <map>
#include <numbers>
#include <random>
#include <sstream>

namespace {

sockaddr_in CameraAt(unsigned short port) {
  sockaddr_in address{};
  SetIP(127, 0, 0, 11, reinterpret_cast<sockaddr*>(&address));
  address.sin_port = htons(port);
  return address;
}

class CFakeCamera : public CAudioCamera, public CTraceProducer {
 public:
  CFakeCamera() : CTraceProducer("camera") {}
  bool GetCameraAddress(sockaddr_in* address) const override { return *address = CameraAt(0), true; }
  CGXString SerialNo() const override { return "SN01"; }
  void MicMute(int) override { ++Unmuted; }
  CIntercomClient* OwnIntercomClient() override { return &Own; }
  CTraceProducer* TraceProducer() override { return this; }
  CIntercomClient Own;
  std::atomic<int> Unmuted{0};
};

// Somebody at a panel. Direct: talks to the port that it is told. Relayed: the path comes when the test says
// so.
class CTalker : public CIntercomClient {
 public:
  explicit CTalker(bool relayed = false) : m_bRelayed(relayed) {
    CIntercomServer::Instance()->RegisterClient(this);
    int error = OPUS_OK;
    m_pEncoder = opus_encoder_create(48000, 1, OPUS_APPLICATION_VOIP, &error);
  }
  ~CTalker() override {
    CIntercomServer::Instance()->RemoveClient(this);
    opus_encoder_destroy(m_pEncoder);
  }
  bool UsesRelay() override { return m_bRelayed; }
  unsigned GetIP() override { return htonl(INADDR_LOOPBACK); }
  int HandleAudioStreamTargetAttach(CAudioStreamTarget* target, GXT_RTP_PATH_DESCRIPTOR* path,
                                    STREAM_CTX) override {
    sockaddr_in at{};
    if (GetPathAddress(path, &at)) ListenerPort = ntohs(at.sin_port);
    m_Socket.Reset(BoundSocket(SOCK_DGRAM, m_bRelayed ? 0 : static_cast<unsigned short>(ListenerPort + 9500)));
    Target = target;
    return 1;
  }
  int HandleAudioStreamTargetDetach(CAudioStreamTarget* target) override {
    EXPECT_EQ(Target, target);
    Target = nullptr;
    return 1;
  }
  void Send(std::span<const unsigned char> packet, unsigned short port) {
    const sockaddr_in to = Loopback(port);
    sendto(m_Socket.Get(), packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  }
  // The next 20 ms of a tone of 1 HZ.
  void Say(unsigned short port) {
    short pcm[960];
    for (short& sample : pcm)
      sample = static_cast<short>(8000 * std::sin(2 * std::numbers::pi * 1000 * m_nSaid++ / 48000));
    unsigned char packet[1500] = {0x80, 111};
    const int bytes = opus_encode(m_pEncoder, pcm, 960, packet + 12, sizeof packet - 12);
    if (bytes > 0) Send({packet, static_cast<size_t>(12 + bytes)}, port);
  }
  int Socket() const { return m_Socket.Get(); }
  std::atomic<CAudioStreamTarget*> Target{nullptr};
  std::atomic<unsigned short> ListenerPort{0};

 private:
  const bool m_bRelayed;
  COwnedSocket m_Socket;
  OpusEncoder* m_pEncoder = nullptr;
  int m_nSaid = 0;
};

const std::string HELLO(16, '\0');

std::string ReceiveText(int socket, sockaddr_in* from = nullptr, unsigned milliseconds = 20000) {
  char bytes[4096];
  socklen_t length = sizeof *from;
  if (!WaitSocketReadState(socket, milliseconds)) return {};
  const ssize_t received = recvfrom(socket, bytes, sizeof bytes, MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr*>(from), from != nullptr ? &length : nullptr);
  return received > 0 ? std::string(bytes, static_cast<size_t>(received)) : std::string();
}

int CameraSocket(unsigned short port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in at = CameraAt(port);
  EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at));
  return fd;
}

// A camera that answers at once, or late, and counts.
class CSpeaker {
 public:
  CSpeaker() : m_Thread([this] { Serve(); }) {}
  ~CSpeaker() {
    m_bEnd = true;
    m_Thread.join();
    close(m_iSocket);
  }
  std::atomic<bool> Answers{true};  // else an INVITE has its final answer once this is true again
  std::atomic<int> Invites{0}, Acks{0}, Byes{0};

 private:
  void Serve() {
    std::vector<sockaddr_in> held;
    while (!m_bEnd) {
      sockaddr_in from{};
      const std::string request = ReceiveText(m_iSocket, &from, 20);
      const bool invite = request.starts_with("INVITE");
      if (invite) Answer("SIP/2.0 100 Trying\r\n\r\n", from);
      if (invite) held.push_back(from);
      if (request.starts_with("OPTIONS") || request.starts_with("BYE")) Accept(from);
      while (Answers && !held.empty()) {
        Accept(held.back());
        held.pop_back();
      }
      Invites += invite;
      Acks += request.starts_with("ACK");
      Byes += request.starts_with("BYE");
    }
  }
  void Accept(const sockaddr_in& caller) {
    Answer("SIP/2.0 200 OK\r\nTo: <a>;tag=1\r\n\r\nm=audio 6000 RTP/AVP 0\r\n", caller);
  }
  void Answer(const std::string& text, const sockaddr_in& to) {
    sendto(m_iSocket, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  }
  const int m_iSocket = CameraSocket(5060);
  std::atomic<bool> m_bEnd{false};
  std::thread m_Thread;
};

constexpr int SIPP_ENDED_BY_SCENARIO = 97;

class AudioCall : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(SetNetworkInterface("lo")); }

  std::unique_ptr<CVivotek_AudioOut> Begin(CIntercomClient* talker) {
    const CMainThreadLock hold;
    auto audio = std::make_unique<CVivotek_AudioOut>(&m_Camera, talker);
    audio->Start();
    return audio;
  }
  // The camera as sipp with one of our scenarios, once it answers; its result when a whole call is over.
  std::future<CCommandResult> Sipp(const std::string& scenario, const std::string& countsFolder = "") {
    std::string command =
        "sipp -sf " + std::string(TEST_DATA_DIR) + "/sip/" + scenario + " -i 127.0.0.11 -p 5060 -nostdin ";
    if (countsFolder.empty())
      command += "2>&1";
    else
      command = "cd " + countsFolder + "; " + command + "-trace_counts -fd 1 >out 2>&1 & echo $! >pid; wait";
    auto sipp = std::async(std::launch::async, [command] { return RunCommand(command, 1200); });
    const COwnedSocket probe(BoundSocket(SOCK_DGRAM, 0));
    const sockaddr_in camera = CameraAt(5060);
    EXPECT_TRUE(Eventually(60, [&] {
      const CSIPDialogue dialogue("SN01", "127.0.0.11", "127.0.0.1", BoundPort(probe.Get()));
      return CVivotek_AudioOut::DoSIPExchange(probe.Get(), dialogue, &camera, "OPTIONS", 1, {}) != 0;
    }));
    return sipp;
  }
  bool InCall() {
    return Eventually(60, [this] { return m_Traces.Has("AudioOut: SIP->INVITE (ACK) Ok, enter run loop"); });
  }
  // Ends the call; sipp ends by its scenario's command when it had each of its steps.
  void ExpectWhole(std::future<CCommandResult>* sipp, CVivotek_AudioOut* call) {
    call->Stop();
    const CCommandResult result = sipp->get();
    EXPECT_EQ(SIPP_ENDED_BY_SCENARIO, result.status) << result.output;
  }
  bool TracesInOrder(const std::vector<std::string>& wanted) {
    size_t next = 0;
    for (const std::string& line : m_Traces.Lines())
      if (next < wanted.size() && line == wanted[next]) ++next;
    return next == wanted.size();
  }

  CFakeCamera m_Camera;
  CTraceKeeper m_Traces{&m_Camera};
};

// The last line of the counts that sipp writes each second, by the names of its first.
std::map<std::string, int> SippCounts(const std::string& folder) {
  std::istringstream in(RunCommand("cat " + folder + "/*_counts.csv").output);
  std::string names, line, counts, name, count;
  std::getline(in, names);
  while (std::getline(in, line)) counts = line;
  std::istringstream name_list(names), count_list(counts);
  std::map<std::string, int> result;
  while (std::getline(name_list, name, ';') && std::getline(count_list, count, ';'))
    result[name] = std::atoi(count.c_str());
  return result;
}

// Loudness of the tone beside all that is not the tone, in dB.
double SignalToNoise(const std::vector<short>& pcm, double hertz) {
  double in = 0, quadrature = 0, total = 0;
  for (size_t i = 0; i < pcm.size(); ++i) {
    const double angle = 2 * std::numbers::pi * hertz * static_cast<double>(i) / 8000;
    in += pcm[i] * std::cos(angle), quadrature += pcm[i] * std::sin(angle), total += std::pow(pcm[i], 2);
  }
  const double tone = 2 * (in * in + quadrature * quadrature) / static_cast<double>(pcm.size());
  return 10 * std::log10(tone / (total - tone));
}

// Rings twice, a late answer, the answer once more in the call, INFO, BYE; and a tone meanwhile.
TEST_F(AudioCall, SpeaksThroughAnIndependentSIPCamera) {
  const COwnedSocket speaker(CameraSocket(6000));
  auto sipp = Sipp("speaker_call.xml");
  CTalker talker;
  const auto audio = Begin(&talker);
  // What is said while it rings is not played in one burst when it answers.
  ASSERT_TRUE(Eventually(60, [&] { return m_Traces.Has("AudioOut: SIP->INVITE Ok"); }));
  for (int i = 0; i < 50; ++i) {
    talker.Say(talker.ListenerPort);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_TRUE(InCall());
  EXPECT_EQ("", ReceiveText(speaker.Get(), nullptr, 300));
  EXPECT_EQ(HELLO, ReceiveText(talker.Socket()));

  constexpr unsigned char STARTUP[16] = {};
  constexpr unsigned char DAMAGED[] = {0x80, 111, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF};
  std::vector<short> pcm;
  std::string first;
  for (unsigned sequence = 0; sequence < 100; ++sequence) {
    if (sequence % 25 == 0) {
      talker.Send(STARTUP, talker.ListenerPort);
      talker.Send(DAMAGED, talker.ListenerPort);
    }
    talker.Say(talker.ListenerPort);
    const std::string packet = ReceiveText(speaker.Get());
    ASSERT_EQ(12U + 160U, packet.size());
    if (first.empty()) first = packet;
    const auto* bytes = reinterpret_cast<const unsigned char*>(packet.data());
    EXPECT_EQ(0x80000000U + sequence, ReadBE32(bytes));
    EXPECT_EQ(first.substr(8, 4), packet.substr(8, 4));
    short decoded[160];
    G711::ULawDecode(decoded, bytes + 12, 160);
    if (sequence >= 20) pcm.insert(pcm.end(), decoded, decoded + 160);
    audio->PopVolumeSample(160);
  }
  EXPECT_GE(SignalToNoise(pcm, 1000), 25.0);

  audio->EnableAudioTX(0);
  talker.Say(talker.ListenerPort);
  EXPECT_EQ(std::string(160, '\x7F'), ReceiveText(speaker.Get()).substr(12));
  EXPECT_EQ(1, m_Camera.Unmuted);

  ExpectWhole(&sipp, audio.get());
  EXPECT_TRUE(Eventually(20, [&] { return talker.Target == nullptr; }));
  EXPECT_TRUE(TracesInOrder({"AudioOut: SIP->OPTIONS Ok", "AudioOut: SIP->INVITE Ok",
                             "AudiOut: Got INVITE response OK", "AudioOut: SIP->INVITE (ACK) Ok",
                             "AudioOut: SIP->INVITE (ACK) Ok, enter run loop", "AudiOut: RunLoop() finished"}));
}

// First no answer within 10 s: the one that comes afterwards is for a call that is ended at once. Then one that
// comes before anybody waits for it, so that it is read from its retransmission.
TEST_F(AudioCall, PlacesTheCallAgainUntilItIsAnswered) {
  CTalker talker;
  auto late = std::make_unique<CSpeaker>();
  late->Answers = false;
  const auto audio = Begin(&talker);
  ASSERT_TRUE(Eventually(60, [&] { return m_Traces.Has("AudiOut: Failed waiting for INVITE response"); }));
  late->Answers = true;
  EXPECT_TRUE(Eventually(20, [&] { return late->Acks > 0 && late->Byes > 0; }));
  late.reset();
  ASSERT_TRUE(Eventually(60, [&] { return m_Traces.Has("AudioOut: SIP->OPTIONS Failed"); }));
  auto immediate = Sipp("speaker_immediate.xml");
  ASSERT_TRUE(InCall());
  ExpectWhole(&immediate, audio.get());
}

TEST_F(AudioCall, WaitsForALatePathAndEndsWithItsTalker) {
  const COwnedSocket speaker(CameraSocket(6000)), relay(BoundSocket(SOCK_DGRAM, 0));
  CSpeaker camera;
  auto talker = std::make_unique<CTalker>(true);
  const auto audio = Begin(talker.get());
  EXPECT_TRUE(audio->IsRunning());
  EXPECT_EQ(0, camera.Invites);

  GXT_RTP_PATH_DESCRIPTOR path{};
  SetPathAddress(&path, htonl(INADDR_LOOPBACK), BoundPort(relay.Get()));
  talker->Target.load()->ProcessAudioSourceAddressInfo(&path);
  sockaddr_in listener{};
  EXPECT_EQ(HELLO, ReceiveText(relay.Get(), &listener));
  ASSERT_TRUE(InCall());
  talker->Say(ntohs(listener.sin_port));
  EXPECT_EQ(172U, ReceiveText(speaker.Get()).size());

  talker.reset();
  EXPECT_FALSE(audio->IsRunning());
  EXPECT_EQ(nullptr, audio->IntercomClient());
  EXPECT_TRUE(Eventually(20, [&] { return m_Traces.Has("AudiOut: RunLoop() finished"); }));
  EXPECT_TRUE(Eventually(20, [&] { return camera.Byes > 0; }));
}

// Deleted by the main thread, which holds its lock, before the camera is asked, while it is, while its answer
// is awaited, in the call, and in the call's end.
TEST_F(AudioCall, FiveHundredLeaveNothingBehindInAnyPhase) {
  CSIPFarewells::Instance();  // its wake-up descriptor stays as long as the process
  CSpeaker camera;
  CTalker talker;
  size_t descriptors = 0, threads = 0;
  unsigned short firstPort = 0, lastPort = 0;
  for (int i = 0; i < 500; ++i) {
    const int phase = i % 5, invites = camera.Invites, acks = camera.Acks;
    camera.Answers = phase != 2;
    auto audio = Begin(&talker);
    lastPort = talker.ListenerPort;
    const bool asked = phase == 0 || Eventually(20, [&] { return camera.Invites > invites; });
    const bool agreed = phase < 3 || Eventually(20, [&] { return camera.Acks > acks; });
    ASSERT_TRUE(asked && agreed) << i;
    const CMainThreadLock hold;
    if (phase == 4) audio->Stop();
    audio.reset();
    EXPECT_EQ(nullptr, talker.Target);
    if (i > 0) continue;
    firstPort = lastPort;
    descriptors = EntriesOf("/proc/self/fd"), threads = EntriesOf("/proc/self/task");
  }
  camera.Answers = true;
  EXPECT_TRUE(Eventually(20, [&] { return camera.Acks == camera.Invites && camera.Byes == camera.Invites; }))
      << camera.Invites << " calls, " << camera.Acks << " acknowledged, " << camera.Byes << " ended";
  EXPECT_TRUE(Eventually(20, [&] {
    return EntriesOf("/proc/self/fd") <= descriptors && EntriesOf("/proc/self/task") <= threads;
  }));
  // Even ports from 8460 on, a hundred of them in turn.
  EXPECT_EQ(0, firstPort % 2);
  EXPECT_EQ(firstPort == 8460 ? 8658 : firstPort - 2, lastPort);
}

// Hung up at random moments of the set-up, the next talker at once behind. HANG_UPS=1000 for the long version.
TEST_F(AudioCall, EveryAnsweredCallIsAcknowledgedAndEndedWheneverItIsHungUp) {
  const char* const wanted = std::getenv("HANG_UPS");
  const int calls = wanted != nullptr ? std::atoi(wanted) : 40;
  const std::string folder = testing::TempDir() + "hung_up." + std::to_string(getpid());
  RunCommand("mkdir -p " + folder);
  auto sipp = Sipp("speaker_hung_up.xml", folder);
  std::mt19937 random(7);
  CTalker talker;
  for (int i = 0; i < calls; ++i) {
    auto audio = Begin(&talker);
    // Not for something to happen: to meet the call in different moments.
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 300000));
    const CMainThreadLock hold;
    audio.reset();
  }
  std::map<std::string, int> seen;
  Eventually(20, [&] {
    seen = SippCounts(folder);
    return seen["6_ACK_Recv"] == seen["1_INVITE_Recv"] && seen["7_BYE_Recv"] == seen["1_INVITE_Recv"];
  });
  RunCommand("kill $(cat " + folder + "/pid)");
  sipp.wait();
  RunCommand("rm -rf " + folder);
  std::printf("%d hang-ups: %d calls placed, %d answered, %d acknowledged, %d ended\n", calls,
              seen["1_INVITE_Recv"], seen["5_200_Sent"], seen["6_ACK_Recv"], seen["7_BYE_Recv"]);
  EXPECT_GT(seen["1_INVITE_Recv"], calls / 2);
  for (const char* step : {"5_200_Sent", "6_ACK_Recv", "7_BYE_Recv"})
    EXPECT_EQ(seen["1_INVITE_Recv"], seen[step]) << step;
  for (const char* wrong : {"6_ACK_Unexp", "7_BYE_Unexp", "5_200_Timeout"}) EXPECT_EQ(0, seen[wrong]) << wrong;
}

}  // namespace
