// A camera may be taken away at any moment: it is gone soon, whatever its threads wait for.
#include "tests/camera_script.h"

#include <fcntl.h>

namespace {

constexpr double SOON_SECONDS = 6;  // what the controller allows itself

// A port that lets nobody in and refuses nobody: its queue of connections is full.
class CBlackHole {
 public:
  CBlackHole() : m_iListen(BoundSocket(SOCK_STREAM, 0)) {
    EXPECT_EQ(listen(m_iListen, 0), 0);
    const sockaddr_in address = Loopback(BoundPort(m_iListen));
    for (int& client : m_Clients) {
      client = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      (void)connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
  }
  ~CBlackHole() {
    for (const int client : m_Clients) close(client);
    close(m_iListen);
  }
  std::string URL() const { return "http://127.0.0.1:" + std::to_string(BoundPort(m_iListen)) + "/x"; }

 private:
  const int m_iListen;
  int m_Clients[4] = {};
};

class Stop : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(SetNetworkInterface("lo")); }

  // Removes the camera and looks at the clock and at what it leaves behind.
  static void ExpectGoneSoon(std::unique_ptr<CONVIFCam> camera) {
    CIntercomClient* const client = camera.get();
    const unsigned short port = camera->EventPort();
    const auto start = Clock::now();
    camera.reset();
    EXPECT_LT(SecondsSince(start), SOON_SECONDS);
    EXPECT_FALSE(CIntercomServer::Instance()->HasClient(client));
    EXPECT_EQ(CONVIFCam::GetEventPort(), port);  // it is free again
    CONVIFCam::FreeEventPort(port);
  }
  static std::unique_ptr<CONVIFCam> Started(std::unique_ptr<CONVIFCam> camera) {
    camera->StartThread("ONVIFCam");
    return camera;
  }
};

TEST_F(Stop, WhileItSearchesConnectsOrWaits) {
  ExpectGoneSoon(StaticCamera("http://127.0.0.1:1/x"));  // before it was started
  const CBlackHole hole;
  const CScriptedCamera script;
  const std::pair<std::string, const char*> cases[] = {
      {"", "Looking for Service URL..."},
      {hole.URL(), "Loading Device Info..."},
      {"http://127.0.0.1:1/x", "FAILED"},            // it waits for the next try
      {script.URL(), "Starting Event Service..."}};  // or for the main thread
  const CMainThreadLock busy;
  for (const auto& [url, line] : cases) {  // when it has said this, it is taken away
    SCOPED_TRACE(line);
    auto camera = url.empty() ? std::make_unique<CONVIFCam>(CameraDefinition(CONVIFCam::TYPE_DISCOVERED))
                              : StaticCamera(url);
    const CTraceKeeper trace(camera.get());
    camera = Started(std::move(camera));
    ASSERT_TRUE(Eventually(20, [&, text = line] { return trace.Has(text); }));
    ExpectGoneSoon(std::move(camera));
  }
}

// In each step in turn, in the middle of its exchange.
TEST_F(Stop, WhileAnyStepWaitsForItsAnswer) {
  for (const char* operation :
       {"GetDeviceInformation", "GetSystemDateAndTime", "GetServices", "GetCapabilities",
        "GetVideoEncoderConfigurations", "GetVideoEncoderConfigurationOptions", "GetProfiles", "GetSnapshotUri",
        "GetStreamUri", "GetNodes", "Subscribe"}) {
    SCOPED_TRACE(operation);
    std::atomic<bool> reached{false}, release{false};
    CScriptedCamera script;
    script.Watch([&](const std::string& asked) {
      if (asked != operation) return;
      reached = true;
      Eventually(20, [&] { return release.load(); });
    });
    auto camera = Started(StaticCamera(script.URL()));
    EXPECT_TRUE(Eventually(20, [&] { return reached.load(); }));
    ExpectGoneSoon(std::move(camera));
    release = true;
  }
}

TEST_F(Stop, WhileAProcIsAtWork) {
  class CSleepingProc : public CONVIF_Proc {
   public:
    explicit CSleepingProc(std::atomic<int>* running) : m_pRunning(running) {}
    int DoProc(CONVIFCam*) override {
      ++*m_pRunning;
      Sleep(60000);
      return 1;
    }

   private:
    std::atomic<int>* const m_pRunning;
  };
  std::atomic<int> running{0};
  auto camera = StaticCamera("http://127.0.0.1:1/x");
  for (int i = 0; i < 3; ++i) camera->PushProc(std::make_unique<CSleepingProc>(&running));
  ASSERT_TRUE(Eventually(20, [&] { return running == 1; }));
  ExpectGoneSoon(std::move(camera));
  EXPECT_EQ(running, 1);  // those that waited were dropped
}

TEST_F(Stop, WhileItStreamsAndRecords) {
  CCamsim sim({"--camera", "ptz"});
  ASSERT_TRUE(sim.Ready());
  for (const int milliseconds : {0, 20, 60, 150, 400}) {
    SCOPED_TRACE(milliseconds);
    CPictureSink sink;
    auto camera = StaticCamera(SimURL(1));
    camera->DVRResolutionIndex(1);
    camera->WantDVR(true);
    camera = Started(std::move(camera));
    camera->AddVideoSink(&sink);
    ASSERT_TRUE(Eventually(60, [&] {
      camera->FileThreadOnIdle();
      return (camera->RunState() & 0x4000) != 0;
    }));
    // Not for something to happen: to meet the sessions in different moments of their start.
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    ExpectGoneSoon(std::move(camera));
  }
}

// The host's own way, with everything that may call into a component at work.
TEST_F(Stop, ThroughTheHostUnderFullLoad) {
  CCamsim sim({"--camera", "ptz", "--camera", "door"});
  ASSERT_TRUE(sim.Ready());
  const CHostAtWork host;
  CPictureSink sinks[3];
  for (int number : {1, 2, 7}) {  // nobody is at the last address
    auto owned = StaticCamera(SimURL(number));
    owned->WantDVR(true);
    owned->DVRResolutionIndex(1);
    CONVIFCam* const camera = owned.get();
    CSystem::Instance()->AddComponent(std::move(owned));
    camera->AddVideoSink(&sinks[number % 3]);
  }
  EXPECT_TRUE(Eventually(60, [&] { return sinks[1].Count() > 3 && sinks[2].Count() > 0; }));
  const auto start = Clock::now();
  CSystem::Instance()->RemoveAllComponents();
  EXPECT_LT(SecondsSince(start), SOON_SECONDS);
}

}  // namespace
