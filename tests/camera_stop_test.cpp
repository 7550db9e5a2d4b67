// A camera may be taken away at any moment: it is gone soon, whatever its threads wait for.
#include "tests/camera_script.h"

#include <fcntl.h>

namespace {

constexpr double SOON_SECONDS = 3;  // half of what the controller allows itself

// A port that lets nobody in and refuses nobody: its queue of connections is full.
class CBlackHole {
 public:
  CBlackHole() : m_iListen(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(m_iListen, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(listen(m_iListen, 0), 0);
    getsockname(m_iListen, reinterpret_cast<sockaddr*>(&address), &size);
    m_iPort = ntohs(address.sin_port);
    for (int& client : m_Clients) {
      client = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      (void)connect(client, reinterpret_cast<sockaddr*>(&address), size);
    }
  }
  ~CBlackHole() {
    for (const int client : m_Clients) close(client);
    close(m_iListen);
  }
  CBlackHole(const CBlackHole&) = delete;
  CBlackHole& operator=(const CBlackHole&) = delete;
  int Port() const { return m_iPort; }

 private:
  int m_iListen, m_iPort = 0;
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

TEST_F(Stop, BeforeItWasStarted) {
  ExpectGoneSoon(StaticCamera("http://127.0.0.1:1/x"));
}

TEST_F(Stop, WhileItSearches) {
  auto camera = std::make_unique<CONVIFCam>(CameraDefinition(CONVIFCam::TYPE_DISCOVERED));
  const CTraceKeeper trace(camera.get());
  camera = Started(std::move(camera));
  ASSERT_TRUE(Eventually(5, [&] { return trace.Has("Looking for Service URL..."); }));
  ExpectGoneSoon(std::move(camera));
}

TEST_F(Stop, WhileItConnects) {
  const CBlackHole hole;
  auto camera = StaticCamera("http://127.0.0.1:" + std::to_string(hole.Port()) + "/x");
  const CTraceKeeper trace(camera.get());
  camera = Started(std::move(camera));
  ASSERT_TRUE(Eventually(5, [&] { return trace.Has("Loading Device Info..."); }));
  ExpectGoneSoon(std::move(camera));
}

TEST_F(Stop, WhileItWaitsForTheNextTry) {
  auto camera = StaticCamera("http://127.0.0.1:1/x");
  const CTraceKeeper trace(camera.get());
  camera = Started(std::move(camera));
  ASSERT_TRUE(Eventually(5, [&] { return trace.Has("FAILED"); }));
  ExpectGoneSoon(std::move(camera));
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
      Eventually(10, [&] { return release.load(); });
    });
    auto camera = Started(StaticCamera(script.URL()));
    EXPECT_TRUE(Eventually(5, [&] { return reached.load(); }));
    ExpectGoneSoon(std::move(camera));
    release = true;
  }
}

TEST_F(Stop, WhileItWaitsForTheMainThread) {
  const CScriptedCamera script;
  auto camera = StaticCamera(script.URL());
  const CTraceKeeper trace(camera.get());
  const CMainThreadLock busy;
  ASSERT_TRUE(busy);
  camera = Started(std::move(camera));
  ASSERT_TRUE(Eventually(5, [&] { return trace.Has("Starting Event Service..."); }));
  ASSERT_TRUE(Eventually(5, [&] { return (camera->RunState() & 0x800) != 0; }));
  ExpectGoneSoon(std::move(camera));
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
  ASSERT_TRUE(Eventually(5, [&] { return running == 1; }));
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
    ASSERT_TRUE(Eventually(10, [&] {
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
  EXPECT_TRUE(Eventually(10, [&] { return sinks[1].Count() > 3 && sinks[2].Count() > 0; }));
  const auto start = Clock::now();
  CSystem::Instance()->RemoveAllComponents();
  EXPECT_LT(SecondsSince(start), SOON_SECONDS);
}

}  // namespace
