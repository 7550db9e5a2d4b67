// The camera as a party of the intercom: the door station's call, the talk that follows, and its end in every
// phase.
#include "audio/audio_out.h"
#include "audio/sip_farewells.h"
#include "camera/outbound_call.h"
#include "host/intercom/audio_relay.h"
#include "host/intercom/audio_stream.h"
#include "host/intercom/g711.h"
#include "tests/camera_support.h"
#include "tests/support/scripted_server.h"
#include "tests/support/stopped_clock.h"

#include <opus/opus.h>

#include <cmath>
#include <numbers>

namespace {

constexpr double LONG = 40;  // seconds; for what is bound to happen
constexpr double SOON_SECONDS = 6;

// A panel as a controller has one: rings, answers when it is told to, hears the camera and talks a loud tone.
class CPanel : public CIntercomClient, public CAudioStreamTarget {
 public:
  explicit CPanel(bool relayed = false) : m_bRelayed(relayed) {
    CIntercomServer::Instance()->RegisterClient(this);
  }
  ~CPanel() override {
    CIntercomServer::Instance()->RemoveClient(this);
    EndThreads();
  }
  bool TakesDefaultCalls() override { return true; }
  bool HasAudioRX() override { return true; }
  bool UsesRelay() override { return m_bRelayed; }
  int HandleBeginSession(CIntercomClient*, CALL_TYPE, CALL_TYPE, INCOMING_CALL_CTX) override { return ++Rung; }
  int HandleCancelSession() override { return ++Cancelled; }

  // ---- Ears ----
  int BeginReceiveAudioFrom(CIntercomClient* client) override {
    GXT_RTP_PATH_DESCRIPTOR path{};
    if (m_bRelayed) {
      Relay = std::make_unique<CAudioRelay>(GetIP());
      path = Relay->SourcePath();
    } else {
      AudioPathAt(0, &path);
    }
    if (!AttachAudioStreamTarget(client, this, &path, m_bRelayed ? STREAM_CTX_RELAYED : STREAM_CTX_DIRECT))
      return 0;
    m_pHeard = client;
    m_Threads.emplace_back([this, way = m_bRelayed ? Relay->ListenerPath() : GXT_RTP_PATH_DESCRIPTOR{},
                            socket = BoundSocket(SOCK_DGRAM, AudioSourcePort())] { Listen(socket, way); });
    return 1;
  }
  int StopReceiveAudio() override {
    DetachAudioStreamTarget(std::exchange(m_pHeard, nullptr), this);
    if (Targets == 0) EndThreads();
    return 1;
  }
  void ProcessAudioSourceAddressInfo(GXT_RTP_PATH_DESCRIPTOR*) override {}
  CIntercomClient* IntercomClient() override { return m_pHeard; }

  // ---- Mouth ----
  int HandleAudioStreamTargetAttach(CAudioStreamTarget* target, GXT_RTP_PATH_DESCRIPTOR* path,
                                    STREAM_CTX) override {
    GXT_RTP_PATH_DESCRIPTOR way = *path;
    if (m_bRelayed) {
      m_pTalkRelay = std::make_unique<CAudioRelay>(GetIP());
      GXT_RTP_PATH_DESCRIPTOR listener = m_pTalkRelay->ListenerPath();
      way = m_pTalkRelay->SourcePath();
      target->ProcessAudioSourceAddressInfo(&listener);
    }
    ++Targets;
    m_Threads.emplace_back([this, way] { Talk(way); });
    return 1;
  }
  int HandleAudioStreamTargetDetach(CAudioStreamTarget*) override { return --Targets, 1; }

  std::atomic<int> Rung{0}, Cancelled{0}, Targets{0}, Heard{0}, Silent{0};
  std::atomic<bool> Talks{false};
  std::unique_ptr<CAudioRelay> Relay;

 private:
  void EndThreads() {
    m_bEnd = true;
    for (std::thread& thread : m_Threads) thread.join();
    m_Threads.clear();
    m_bEnd = false;
  }
  static void Hello(int socket, const GXT_RTP_PATH_DESCRIPTOR& way) {
    static constexpr unsigned char HELLO[RTP_HELLO_BYTES] = {};
    STUN_SendPacket(socket, HELLO, RTP_HELLO_BYTES, nullptr, &way, nullptr);
  }
  void Listen(int socket, GXT_RTP_PATH_DESCRIPTOR way) {
    while (!m_bEnd) {
      Hello(socket, way);
      unsigned char packet[2048];
      if (!WaitSocketReadState(socket, 10)) continue;
      const auto length = static_cast<int>(recv(socket, packet, sizeof packet, 0));
      if (IsRTPHello(packet, length)) continue;
      EXPECT_GT(length, 12);
      EXPECT_EQ(packet[0] & 0xC0, 0x80);
      EXPECT_EQ(packet[1] & 0x7F, 0);  // PCMU
      const bool silent = std::all_of(packet + 12, packet + length, [](int code) { return code == 0x7F; });
      ++(silent ? Silent : Heard);
    }
    close(socket);
  }
  void Talk(GXT_RTP_PATH_DESCRIPTOR way) {
    const int socket = BoundSocket(SOCK_DGRAM, 0);
    OpusEncoder* const encoder = opus_encoder_create(8000, 1, OPUS_APPLICATION_VOIP, nullptr);
    short tone[160];
    for (int i = 0; i < 160; ++i) tone[i] = static_cast<short>(8000 * std::sin(2 * std::numbers::pi * i / 8));
    for (auto next = Clock::now(); !m_bEnd && Targets > 0;
         std::this_thread::sleep_until(next += std::chrono::milliseconds(20))) {
      unsigned char packet[512] = {0x80, 111};
      if (m_bRelayed) Hello(socket, way);
      if (!Talks) continue;
      const int length = opus_encode(encoder, tone, 160, packet + 12, sizeof packet - 12);
      STUN_SendPacket(socket, packet, 12 + length, nullptr, &way, nullptr);
    }
    opus_encoder_destroy(encoder);
    close(socket);
  }

  const bool m_bRelayed;
  std::atomic<bool> m_bEnd{false};
  CIntercomClient* m_pHeard = nullptr;
  std::unique_ptr<CAudioRelay> m_pTalkRelay;
  std::vector<std::thread> m_Threads;
};

// A door station that is not there: for what needs no answer of it.
std::unique_ptr<CONVIFCam> Door(const char* maker = "VIVOTEK", const char* model = "IP8133W") {
  auto camera = std::make_unique<CONVIFCam>(CameraDefinition(CONVIFCam::TYPE_DISCOVERED));
  CDeviceConfig record = DeviceRecord(CONVIFCam::TYPE_DISCOVERED, {{"Manufacturer", maker}, {"Model", model}});
  camera->LoadFrom(&record);
  CIntercomServer::Instance()->RegisterClient(camera.get());
  return camera;
}

void Pass(CONVIFCam* camera) {
  CSystem::Instance()->MainThreadPass();
  const CMainThreadLock main;
  camera->OnComponentIdle();
}

class DoorCall : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(SetNetworkInterface("lo")); }
  CIntercomServer& m_Server = *CIntercomServer::Instance();
};

TEST_F(DoorCall, RingsUntilOneAcceptsOrAllDecline) {
  auto door = Door();
  const CTraceKeeper trace(door.get());
  const CMainThreadLock main;
  EXPECT_EQ(door->InitiateCall(0), 0);  // nobody to ring
  EXPECT_EQ(door->CancelCall(0), 1);
  CPanel a, b, c;
  const auto other = Door();  // another camera is not rung
  EXPECT_EQ(door->InitiateCall(0), 1);
  EXPECT_EQ(door->InitiateCall(0), 0);
  for (CPanel* const panel : {&a, &b}) m_Server.DeclineCall(panel);
  Pass(door.get());
  EXPECT_EQ(door->InitiateCall(0), 0);  // the third still rings
  m_Server.DeclineCall(&c);
  EXPECT_EQ(trace.Count("Call Declined by all targets, aborting call"), 0);
  Pass(door.get());
  EXPECT_EQ(trace.Count("Call Declined by all targets, aborting call"), 1);
  EXPECT_EQ(a.Cancelled + b.Cancelled + c.Cancelled, 0);

  EXPECT_EQ(door->InitiateCall(0), 1);
  EXPECT_EQ(door->CancelCall(0), 1);
  EXPECT_EQ(a.Cancelled + b.Cancelled + c.Cancelled, 3);
  EXPECT_EQ(door->InitiateCall(0), 1);
  m_Server.AcceptCall(&b);
  Pass(door.get());
  EXPECT_EQ(a.Cancelled, 2);
  EXPECT_EQ(b.Cancelled, 1);  // the one that talks is not cancelled
  EXPECT_EQ(c.Cancelled, 2);
  EXPECT_EQ(b.IcomPeer(), door.get());
  EXPECT_EQ(b.Targets, 1);
  // The button, pressed while they talk, places no call; neither does its end touch theirs.
  EXPECT_EQ(door->InitiateCall(0), 0);
  EXPECT_EQ(door->CancelCall(0), 1);
  EXPECT_EQ(b.IcomState(), ICOM_CLIENT_TALKING);
  EXPECT_EQ(b.IcomPeer(), door.get());
  EXPECT_EQ(door->BeginReceiveAudioFrom(&a), 0);  // one talker at a time
  EXPECT_EQ(door->SetIcomAudioRXState(&b, 0), 1);
  door.reset();
  EXPECT_EQ(b.Targets, 0);
  EXPECT_EQ(b.Cancelled, 2);
  EXPECT_EQ(b.IcomState(), ICOM_CLIENT_IDLE);
  EXPECT_EQ(other->StopReceiveAudio(), 0);
  EXPECT_EQ(other->SetIcomAudioRXState(&b, 1), 0);
}

TEST_F(DoorCall, EndsAfterFifteenSecondsAndWhenPanelsGoAway) {
  CStoppedClock clock;
  const auto door = Door();
  CPanel a;
  const CMainThreadLock main;
  ASSERT_EQ(door->InitiateCall(0), 1);
  for (const int cancelled : {0, 1}) {  // after 15.999 s, after 16 s
    clock.Step(cancelled == 0 ? 15999 : 1);
    Pass(door.get());
    EXPECT_EQ(a.Cancelled, cancelled);
  }
  {
    const CPanel b;
    ASSERT_EQ(door->InitiateCall(0), 1);
    m_Server.DeclineCall(&a);
    Pass(door.get());
    EXPECT_EQ(door->InitiateCall(0), 0);
  }
  EXPECT_EQ(door->InitiateCall(0), 1);  // the last one is gone: so was the call
}

TEST_F(DoorCall, OnlyThatMakersDoorStationsTalk) {
  const struct {
    const char *maker, *model;
    bool speaker, door;
  } cases[] = {{"Vivotek", "ip8133-x", true, true},
               {"VIVOTEK", "IP8134", true, false},
               {"VIVOTEK", "IP813", true, false},
               {"Acme", "IP8133", false, false}};
  for (const auto& [maker, model, speaker, isDoor] : cases) {
    SCOPED_TRACE(model);
    const auto camera = Door(maker, model);
    const CMainThreadLock main;
    CPanel panel;
    EXPECT_EQ(camera->IcomHardwareType(), isDoor ? 3 : 5);
    EXPECT_EQ(camera->HasAudioRX(), isDoor);
    const int asserts = AssertCount();
    EXPECT_EQ(camera->BeginReceiveAudioFrom(&panel), speaker ? 1 : 0);
    EXPECT_EQ(AssertCount(), asserts + (speaker ? 0 : 1));
    EXPECT_EQ(camera->StopReceiveAudio(), speaker ? 1 : 0);
    EXPECT_EQ(panel.Targets, 0);
  }
}

TEST(AudioSquelch, SilencesWhileTheSpeakerIsLoud) {
  CStoppedClock clock;
  CAudioSquelch squelch;
  const struct {
    int after;  // ms
    std::optional<int> level;
    bool silent;
  } steps[] = {{0, 200, false}, {0, 201, true},   {300, 501, true}, {0, 500, true},   {200, 0, true},
               {20, 501, true}, {0, 500, true},   {240, 0, true},   {20, 0, false},   {0, 200, false},
               {0, 9000, true}, {0, 100, true},   {300, 0, false},  {0, 300, true},   {0, {}, false},
               {0, 150, false}, {0, 32768, true}, {0, 400, true},   {100, 400, true}, {160, 400, false}};
  for (size_t i = 0; i < std::size(steps); ++i) {
    clock.Step(steps[i].after);
    EXPECT_EQ(squelch.Update(steps[i].level), steps[i].silent) << i;
  }
  squelch.Update(1000);
  squelch.Release();
  EXPECT_FALSE(squelch.Update(200));
  unsigned char packet[14] = {};
  CAudioSquelch::Silence(packet, 14);
  CAudioSquelch::Silence(packet, 5);
  EXPECT_EQ(packet[11], 0);
  EXPECT_EQ(packet[12] + packet[13], 2 * 0x7F);
}

TEST_F(DoorCall, FiveHundredInARowLeaveNothingBehindAndNeverBlock) {
  CSIPFarewells::Instance();  // its wake-up descriptor stays as long as the process
  const auto door = Door();
  const CMainThreadLock main;
  CPanel panel;
  double longest = 0;
  size_t descriptors = 0, threads = 0;
  unsigned short port = 0;
  for (int i = 0; i < 500; ++i) {
    const auto start = Clock::now();
    ASSERT_EQ(door->InitiateCall(0), 1);
    if (i % 4 > 0) {
      m_Server.AcceptCall(&panel);
      Pass(door.get());
      ASSERT_EQ(panel.Targets, 1);
      if (i % 4 > 1) m_Server.EndCall(i % 4 == 2 ? door.get() : static_cast<CIntercomClient*>(&panel));
      if (i % 4 == 1) m_Server.RemoveClient(&panel);
    } else {
      door->CancelCall(0);
    }
    Pass(door.get());
    longest = std::max(longest, SecondsSince(start));
    ASSERT_EQ(panel.Targets, 0);
    m_Server.RegisterClient(&panel);
    if (i != 3) continue;
    descriptors = EntriesOf("/proc/self/fd");
    threads = EntriesOf("/proc/self/task");
    port = panel.AllocRTSPPort(2);
    panel.FreeRTSPPort(port);
  }
  std::printf("longest stay on the main thread: %.0f ms\n", longest * 1000);
  EXPECT_LT(longest, SOON_SECONDS);
  EXPECT_TRUE(Eventually(LONG, [&] {
    return EntriesOf("/proc/self/fd") <= descriptors && EntriesOf("/proc/self/task") <= threads;
  }));
  EXPECT_EQ(panel.AllocRTSPPort(2), port);
  panel.FreeRTSPPort(port);
}

// ---- Talks with a simulated door station ----

class DoorTalk : public DoorCall {
 protected:
  void SetUp() override {
    DoorCall::SetUp();
    ASSERT_TRUE(m_Sim.Ready()) << m_Sim.Output();
  }
  CCamsim m_Sim{{"--camera", "door"}};
};

class CTalk {
 public:
  explicit CTalk(bool relayed = false) : Panel(std::make_unique<CPanel>(relayed)) {
    auto owned = StaticCamera(SimURL(1));
    Camera = owned.get();
    CSystem::Instance()->AddComponent(std::move(owned));
    m_iID = Camera->ID();
    Camera->StartThread("ONVIFCam");
    EXPECT_TRUE(Eventually(LONG, [this] { return CEventServer::Instance()->HasCommand(m_iID, 1180); }));
  }
  bool Ring() { return CEventServer::Instance()->ExecuteCommand(m_iID, COMMAND_PLACE_CALL); }
  bool Begin() {
    if (!Ring() || Ring()) return false;
    const int heard = Panel->Heard;
    CIntercomServer::Instance()->AcceptCall(Panel.get());
    return Eventually(LONG, [&] { return Panel->Heard > heard + 10; });
  }
  void RemoveCamera() {
    const auto start = Clock::now();
    EXPECT_TRUE(CSystem::Instance()->RemoveComponent(m_iID));
    EXPECT_LT(SecondsSince(start), SOON_SECONDS);
    Camera = nullptr;
  }

  const CHostAtWork Host;
  std::unique_ptr<CPanel> Panel;
  CONVIFCam* Camera;

 private:
  int m_iID;
};

TEST_F(DoorTalk, BothAreHeardInTurnAndItEndsWhenOneHangsUp) {
  for (const bool relayed : {false, true}) {
    SCOPED_TRACE(relayed);
    CTalk talk(relayed);
    const CTraceKeeper trace(talk.Camera);
    ASSERT_TRUE(talk.Ring());
    EXPECT_TRUE(CEventServer::Instance()->ExecuteCommand(talk.Camera->ID(), COMMAND_CANCEL_CALL));
    EXPECT_EQ(talk.Panel->Cancelled, 1);
    ASSERT_TRUE(talk.Begin());
    EXPECT_EQ(talk.Panel->Targets, 1);
    // The speaker's sound must not come back by the microphone.
    talk.Panel->Talks = true;
    EXPECT_TRUE(Eventually(LONG, [&] { return talk.Panel->Silent > 5; }));
    talk.Panel->Talks = false;
    const int heard = talk.Panel->Heard;
    EXPECT_TRUE(Eventually(LONG, [&] { return talk.Panel->Heard > heard + 10; }));
    CIntercomServer::Instance()->EndCall(talk.Panel.get());
    EXPECT_TRUE(Eventually(LONG, [&] {
      return trace.Has("AudioRTSP Thread Exiting") && trace.Has("AudiOut: RunLoop() finished");
    }));
    EXPECT_EQ(talk.Panel->Targets, 0);
    ASSERT_TRUE(talk.Begin());  // and again
  }
}

TEST_F(DoorTalk, LosingThePanelOrTheRelayEndsCleanlyAndALostCameraIsTriedAgain) {
  for (const std::string lost : {"panel", "relay", "sim"}) {
    SCOPED_TRACE(lost);
    CTalk talk(lost == "relay");
    const CTraceKeeper trace(talk.Camera);
    ASSERT_TRUE(talk.Begin());
    if (lost == "panel") talk.Panel.reset();
    if (lost == "relay") {
      const CMainThreadLock lock;
      talk.Panel->Relay.reset();
      CIntercomServer::Instance()->EndCall(talk.Camera);
    }
    if (lost == "sim") {
      m_Sim.End();
      EXPECT_TRUE(Eventually(LONG, [&] { return trace.Has("Audio RTSP Timeout"); }));
      EXPECT_TRUE(Eventually(LONG, [&] { return trace.Count("Starting AudioRTSP") > 1; }));  // it tries again
    } else {
      EXPECT_TRUE(Eventually(LONG, [&] { return trace.Has("AudioRTSP Thread Exiting"); }));
      EXPECT_TRUE(Eventually(LONG, [&] { return talk.Camera->IcomState() == ICOM_CLIENT_IDLE; }));
    }
  }
}

TEST_F(DoorTalk, CameraGoesAwayInAnyPhase) {
  for (const int milliseconds : {0, 5, 20, 60, 150, 400, 700}) {
    SCOPED_TRACE(milliseconds);
    CTalk talk;
    ASSERT_TRUE(talk.Ring());
    if (milliseconds > 0) CIntercomServer::Instance()->AcceptCall(talk.Panel.get());
    // Not for something to happen: to meet the call in different moments.
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    talk.RemoveCamera();
    EXPECT_EQ(talk.Panel->Targets, 0);
    EXPECT_EQ(talk.Panel->IcomState(), ICOM_CLIENT_IDLE);
  }
}

}  // namespace
