// The pass over the loading steps against a camera that follows a script: what is learnt, and what a failing
// step leaves behind.
#include "tests/camera_script.h"
#include "tests/support/stopped_clock.h"

#include <limits>

namespace {

constexpr unsigned ALL_STEPS = 0x1EF6;  // of a camera entered by its URL

class Load : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SetNetworkInterface("lo"));
    m_pCamera = StaticCamera(m_Script.URL());
    m_pTrace = std::make_unique<CTraceKeeper>(m_pCamera.get());
  }

  CScriptedCamera m_Script;
  std::unique_ptr<CONVIFCam> m_pCamera;
  std::unique_ptr<CTraceKeeper> m_pTrace;
};

TEST_F(Load, WalksAllStepsOnce) {
  EXPECT_TRUE(m_pCamera->CheckRunState());
  EXPECT_EQ(m_pCamera->RunState(), ALL_STEPS);
  std::string lines;
  for (const std::string& line : m_pTrace->Lines()) lines += line + "\n";
  EXPECT_EQ(
      lines,
      "Loading Device Info...\nSuccess\n"
      "Performing TimeSync()...\nDevice Time 5/6/2031 10:20:30\nSuccess\n"
      "Loading Media URLs...\nSuccess\n"
      "Loading Encoder Configs...\nFound Encoder tkn E1 Name:Enc\nFound Encoder tkn E2 Name:Jay\nSuccess\n"
      "Loading Capabilities...\nSuccess\n"
      "Loading Profile Configs...\nFound Profile P1\nFound Profile P2\nSuccess\n"
      "Loading Snapshot Config...\nSuccess\n"
      "Loading Media Config...\nSuccess\n"
      "Loading PTZ Config...\nSuccess\n"
      "Starting Event Service...\nSuccess\n");
  EXPECT_EQ(m_pCamera->EDRVName(), "Acme One");
  EXPECT_EQ(m_pCamera->TraceName(), "Acme:One");
  EXPECT_EQ(m_pCamera->MediaURL().Str(), m_Script.URL("/caps-media"));  // the capabilities have the last word
  EXPECT_TRUE(CSystem::Instance()->TakeSaveRequest());
  ASSERT_NE(m_pCamera->ProfileByToken("P1"), nullptr);
  EXPECT_EQ(m_pCamera->ProfileByToken("P1")->SnapshotUri(), "http://127.0.0.1/snap?a=1&b=2");
  EXPECT_EQ(m_pCamera->ProfileByToken("P2")->StreamUri(), "rtsp://127.0.0.1:1/live");

  m_pTrace->Forget();
  EXPECT_TRUE(m_pCamera->CheckRunState());
  EXPECT_TRUE(m_pTrace->Lines().empty());
}

TEST_F(Load, LeavesAFailedStepForTheNextPass) {
  // After `Operation` got no answer: whether the pass went through, the bits that stay, the last line.
  const struct {
    const char* Operation;
    bool Passes;
    unsigned Bits;
    const char* LastLine;
  } cases[] = {
      {"GetDeviceInformation", false, 0, "Loading Device Info..."},
      {"GetVideoEncoderConfigurations", false, 0x202,
       "Loading Encoder Configs..."},  // the URLs are asked for again
      {"GetCapabilities", false, 0x216, "Loading Capabilities..."},
      {"GetProfiles", false, 0x1216, "Loading Profile Configs..."},
      {"GetVideoEncoderConfigurationOptions", true, ALL_STEPS, "Success"},
      {"GetStreamUri", true, ALL_STEPS, "Success"},
      {"GetNodes", true, ALL_STEPS, "Success"},
      {"Subscribe", true, ALL_STEPS, "Starting Event Service..."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Operation);
    CScriptedCamera script;
    const auto camera = StaticCamera(script.URL());
    const CTraceKeeper trace(camera.get());
    script.SetWhole(c.Operation, CScriptedCamera::SILENT);
    EXPECT_EQ(camera->CheckRunState(), c.Passes);
    EXPECT_EQ(camera->RunState(), c.Bits);
    ASSERT_FALSE(trace.Lines().empty());
    EXPECT_EQ(trace.Lines().back(), c.LastLine);
  }
}

TEST_F(Load, ResumesAtTheFirstUndoneStep) {
  m_Script.SetWhole("GetSystemDateAndTime", CScriptedCamera::SILENT);
  m_Script.Fault("GetSnapshotUri");
  m_Script.SetWhole("GetVideoEncoderConfigurations", CScriptedCamera::SILENT);
  EXPECT_FALSE(m_pCamera->CheckRunState());
  EXPECT_TRUE(m_pTrace->Has("Failed"));
  m_Script.Set("GetVideoEncoderConfigurations", "");
  m_pTrace->Forget();
  EXPECT_TRUE(m_pCamera->CheckRunState());
  EXPECT_EQ(m_pCamera->RunState(), ALL_STEPS);
  EXPECT_EQ(m_pTrace->Lines().front(), "Loading Media URLs...");
  EXPECT_TRUE(m_pTrace->Has("WARNING: No Snapshot Config"));
  EXPECT_FALSE(m_pTrace->Has("FAILED"));
  EXPECT_EQ(m_Script.Requests("GetDeviceInformation").size(), 1U);
}

// Without media services it asks the service URL, and over bad answers it keeps the last good lists.
TEST_F(Load, KeepsWhatItHasOverABadAnswer) {
  const char* const warning = "WARNING: Bad Reply from GetServices()";
  m_Script.Set("GetServices",
               "<d:Service><d:Namespace>http://x/ptz</d:Namespace><d:XAddr>http://no/</d:XAddr></d:Service>");
  EXPECT_TRUE(m_pCamera->CheckRunState());
  EXPECT_EQ(m_pCamera->MediaURL().Str(), m_Script.URL("/caps-media"));
  EXPECT_EQ(m_pTrace->Count(warning), 1);
  for (const char* operation :
       {"GetServices", "GetCapabilities", "GetProfiles", "GetVideoEncoderConfigurations"})
    m_Script.Fault(operation);
  m_pCamera->SetErrorState();
  EXPECT_EQ(m_pCamera->RunState(), 0U);
  EXPECT_TRUE(m_pCamera->CheckRunState());
  EXPECT_EQ(m_pCamera->MediaURL(), m_pCamera->ServiceURL());
  EXPECT_EQ(m_pTrace->Count(warning), 3);
  EXPECT_EQ(m_pCamera->IndexOfProfile("P2"), 1);
  EXPECT_EQ(m_pCamera->IndexOfEncoder("E1"), 0);
  EXPECT_EQ(m_pCamera->IndexOfProfile("P9"), 255);
  EXPECT_EQ(m_pCamera->IndexOfEncoder(""), 255);
}

// At another address there is another camera: what the old one offered is not that one's.
TEST_F(Load, ForgetsTheCameraAtTheOldAddress) {
  m_Script.Set("GetCapabilities", "<t:PTZ><t:XAddr>" + m_Script.URL("/ptz") + "</t:XAddr></t:PTZ>");
  EXPECT_TRUE(m_pCamera->CheckRunState());
  EXPECT_TRUE(m_pCamera->LoadDefaultUserSettings());
  EXPECT_NE(m_pCamera->Options() & VIDEO_OPTION_ZOOM, 0U);
  // An index out of a damaged record.
  m_pCamera->DVRResolutionIndex(std::numeric_limits<int>::min());
  m_pCamera->StartDVR();
  EXPECT_LT(m_pCamera->DVRSink()->CameraRes(), 0);
  m_pCamera->StopDVR();

  m_pCamera->SetConfigURL("http://127.0.0.1:1/gone");
  EXPECT_EQ(m_pCamera->IndexOfProfile("P1"), 255);
  EXPECT_EQ(m_pCamera->IndexOfEncoder("E1"), 255);
  EXPECT_EQ(m_pCamera->MediaURL(), "");
  EXPECT_EQ(m_pCamera->Options() & VIDEO_OPTION_ZOOM, 0U);
  m_pCamera->StopThread();
}

// Streams that fail at once load the camera anew each time, but each stream starts only once a second: seven
// loads are more than two streams can cause within one.
TEST_F(Load, IsNotRepeatedWithoutPauseWhenStreamsFail) {
  const CHostAtWork host;
  CPictureSink viewer;
  m_pCamera->WantDVR(true);
  m_pCamera->DVRResolutionIndex(1);
  CONVIFCam* const camera = m_pCamera.get();
  CSystem::Instance()->AddComponent(std::move(m_pCamera));
  camera->AddVideoSink(&viewer);  // starts it
  const auto loads = [&] { return m_Script.Requests("Subscribe").size(); };
  EXPECT_TRUE(Eventually(40, [&] { return loads() >= 2; }));
  const auto start = Clock::now();
  const size_t before = loads();
  EXPECT_TRUE(Eventually(60, [&] { return loads() >= before + 7; }));
  EXPECT_GT(SecondsSince(start), 0.9);
  EXPECT_EQ(m_pTrace->Count("FAILED"), 0);
  m_pTrace.reset();
  CSystem::Instance()->RemoveComponent(camera->ID());
}

// A step that began before a reset must not leave its bit in the cleared word.
TEST_F(Load, ForgetsAStepThatWasUnderWayWhenTheStateWasReset) {
  m_Script.Watch([this](const std::string& operation) {
    if (operation == "GetProfiles") m_pCamera->SetErrorState();
  });
  EXPECT_TRUE(m_pCamera->CheckRunState());
  // GetNodes travels as GetProfiles only in its action: one reset, of the profile step.
  EXPECT_EQ(m_pCamera->RunState(), 0xCC0U);
  m_Script.Watch(nullptr);
  EXPECT_TRUE(m_pCamera->CheckRunState());
  EXPECT_EQ(m_pCamera->RunState(), ALL_STEPS);
}

TEST_F(Load, TellsWhatTheCameraCanDo) {
  const std::string ptz = "<t:PTZConfiguration token=\"z\"><t:DefaultRelativePanTiltTranslationSpace>";
  const std::string fov = CONVIFCam::SPACE_FIELD_OF_VIEW;
  const auto limits = [](const char* min, const char* max) {
    const std::string range = std::string("<t:Min>") + min + "</t:Min><t:Max>" + max + "</t:Max>";
    return "<t:PanTiltLimits><t:Range><t:XRange>" + range + "</t:XRange><t:YRange>" + range +
           "</t:YRange></t:Range></t:PanTiltLimits>";
  };
  const auto space = [&](const std::string& uri, const std::string& more) {
    return ptz + uri + "</t:DefaultRelativePanTiltTranslationSpace>" + more + "</t:PTZConfiguration>";
  };
  const std::string zoom =
      "<t:ZoomLimits><t:Range><t:XRange><t:Min>0</t:Min><t:Max>1</t:Max></t:XRange></t:Range></t:ZoomLimits>";
  const std::string sound =
      "<t:AudioEncoderConfiguration token=\"a\"><t:Encoding>G711</t:Encoding>"
      "</t:AudioEncoderConfiguration>";
  const struct {
    const char* Name;
    std::string Profile;
    bool Presets;
    const char* PTZAddress;
    unsigned Options;
  } cases[] = {
      {"nothing", "", false, nullptr, 0},
      {"sound", sound, false, nullptr, 0x8},
      {"narrow ranges", space(fov, limits("0", "0")), false, nullptr, 0},
      {"pan", space(fov, limits("-1", "1")), false, nullptr, 0x2},
      {"zoom in another space", space("http://other", zoom), false, nullptr, 0x20080},
      {"presets", space(fov, ""), true, "/ptz", 0x20182},
      {"a PTZ service", "", false, "/ptz", 0x20082},
      {"a PTZ service without address", "", false, "", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    CScriptedCamera script;
    const auto camera = StaticCamera(script.URL());
    script.Set("GetProfiles", CScriptedCamera::Profile("P1", "H264", "E1", 640, 480, c.Profile));
    if (!c.Presets) script.Set("GetPresets", "");
    std::string url;
    if (c.PTZAddress != nullptr) {
      if (*c.PTZAddress != '\0') url = script.URL(c.PTZAddress);
      script.Set("GetCapabilities",
                 "<d:Capabilities><t:PTZ><t:XAddr>" + url + "</t:XAddr></t:PTZ></d:Capabilities>");
    }
    EXPECT_TRUE(camera->CheckRunState());
    EXPECT_EQ(camera->Options(), 0x14101U | c.Options);
    EXPECT_EQ(camera->PTZURL().Str(), url);
    EXPECT_EQ(camera->RelativeMoveProfile() != nullptr, c.Profile.find("PTZConf") != std::string::npos);
  }
}

TEST_F(Load, LogsInWithTheCamerasOwnClock) {
  EXPECT_TRUE(m_pCamera->CheckRunState());
  for (const char* plain : {"GetDeviceInformation", "GetSystemDateAndTime"})
    EXPECT_EQ(m_Script.Requests(plain).at(0).find("UsernameToken"), std::string::npos) << plain;
  for (const char* secured :
       {"GetServices", "GetCapabilities", "GetVideoEncoderConfigurations",
        "GetVideoEncoderConfigurationOptions", "GetProfiles", "GetSnapshotUri", "GetNodes"}) {
    const std::string request = m_Script.Requests(secured).at(0);
    EXPECT_NE(request.find(">admin</"), std::string::npos) << secured;
    EXPECT_NE(request.find("2031-05-06T10:2"), std::string::npos) << secured;
  }
  const std::string nodes = m_Script.Requests("GetNodes").at(0);
  EXPECT_NE(nodes.find("ver10/media/wsdl/GetProfiles\""), std::string::npos);
  EXPECT_NE(nodes.find("<GetNodes xmlns=\"http://www.onvif.org/ver20/ptz/wsdl\""), std::string::npos);
}

TEST_F(Load, SubscribesToEvents) {
  EXPECT_TRUE(m_pCamera->CheckRunState());
  const std::string request = m_Script.Requests("Subscribe").at(0);
  const std::string own = "http://127.0.0.1:" + std::to_string(m_pCamera->EventPort());
  size_t at = 0;
  for (const std::string& part : std::vector<std::string>{
           // in this order
           "POST /device ",
           "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" "
           "xmlns:a=\"http://www.w3.org/2005/08/addressing\"><s:Header>",
           "<a:Action s:mustUnderstand=\"1\">http://docs.oasis-open.org/wsn/bw-2/NotificationProducer/"
           "SubscribeRequest</a:Action><a:MessageID>uuid:",
           "</a:MessageID><a:ReplyTo><a:Address>http://www.w3.org/2005/08/addressing/anonymous</a:Address>"
           "</a:ReplyTo>",
           "UsernameToken", "<a:To s:mustUnderstand=\"1\">" + m_Script.URL() + "</a:To></s:Header><s:Body ",
           "<Subscribe xmlns=\"http://docs.oasis-open.org/wsn/b-2\"><ConsumerReference><a:Address>" + own +
               "/subscribe</a:Address></ConsumerReference>",
           "<InitialTerminationTime>PT60S</InitialTerminationTime></Subscribe></s:Body></s:Envelope>"}) {
    at = request.find(part, at);
    ASSERT_NE(at, std::string::npos) << part << "\nin\n" << request;
  }
}

TEST_F(Load, FillsEmptyUserSettings) {
  EXPECT_TRUE(m_pCamera->CheckRunState());
  EXPECT_EQ(m_pCamera->NResolutions(RTSP_PROFILE_JPEG), 0);
  EXPECT_TRUE(m_pCamera->LoadDefaultUserSettings());
  const struct {
    RTSP_PROFILE_TYPE Type;
    const char* Name;
    int DriverData, Width, EncodeType, Wide;
  } cases[] = {{RTSP_PROFILE_JPEG, "P2", 0x1FF00, 640, 2, 0}, {RTSP_PROFILE_H264, "P1", 0x0FF00, 1920, 9, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    ASSERT_EQ(m_pCamera->NResolutions(c.Type), 1);
    CResolutionDescriptor descriptor;
    m_pCamera->LoadResolutionDescriptor(1, &descriptor, c.Type);
    EXPECT_EQ(descriptor.DriverDataPtr(), nullptr);
    m_pCamera->LoadResolutionDescriptor(0, &descriptor, c.Type);
    EXPECT_EQ(descriptor.Description(), c.Name);
    EXPECT_EQ(descriptor.DriverDataInt(), c.DriverData);
    EXPECT_EQ(descriptor.Size().Width, c.Width);
    EXPECT_EQ(descriptor.EncodeType(), c.EncodeType);
    EXPECT_EQ(m_pCamera->CameraOrientation(c.Type, 7), c.Wide);
    EXPECT_EQ(m_pCamera->GetRTSPResolution(c.Type, -1), 0);
    EXPECT_NE(m_pCamera->FindUserSettings(descriptor.DriverDataPtr()), nullptr);
    EXPECT_EQ(m_pCamera->FindUserSettings(&descriptor), nullptr);
  }
  EXPECT_EQ(m_pCamera->NResolutions(static_cast<RTSP_PROFILE_TYPE>(3)), 0);
  // The JPEG entries count first when a recording is chosen.
  for (const auto& [index, token] : {std::pair(0, "P2"), std::pair(1, "P1")}) {
    m_pCamera->DVRResolutionIndex(index);
    ASSERT_NE(m_pCamera->DVRProfile(), nullptr);
    EXPECT_EQ(m_pCamera->DVRProfile()->Token(), token);
    EXPECT_EQ(m_pCamera->DVREncodeType(), index == 0 ? 2 : 9);
  }
  EXPECT_EQ(m_pCamera->DVREncodeDimensions().Width, 1920);
  m_pCamera->DVRResolutionIndex(2);
  EXPECT_EQ(m_pCamera->DVRProfile(), nullptr);
  EXPECT_EQ(m_pCamera->DVREncodeDimensions().Width, 640);
  m_pCamera->SetErrorState();
  EXPECT_EQ(m_pCamera->DVREncodeType(), -1);
}

// Whatever was asked when the controller's clock had just been set is asked again with the camera's right time.
TEST_F(Load, AsksAgainWhatAStepOfTheClockSpoilt) {
  const std::vector<std::string> asked = {"GetServices", "GetCapabilities", "GetVideoEncoderConfigurations",
                                          "GetProfiles", "GetSnapshotUri",  "GetStreamUri",
                                          "GetNodes",    "Subscribe"};
  for (const long long step : {-2000LL, -3600000LL, 3600000LL, 31536000000LL})
    for (const std::string& spoilt : asked) {
      SCOPED_TRACE(spoilt + " " + std::to_string(step));
      CStoppedClock clock;
      CScriptedCamera script;
      const auto camera = StaticCamera(script.URL());
      std::atomic<bool> stepped{false};
      script.Watch([&](const std::string& operation) {
        if (operation == spoilt && !stepped.exchange(true)) clock.Step(step);
      });
      EXPECT_TRUE(camera->CheckRunState());
      EXPECT_EQ(camera->RunState(), ALL_STEPS);
      for (const std::string& operation : asked) {
        const auto requests = script.Requests(operation);
        ASSERT_FALSE(requests.empty()) << operation;
        EXPECT_NE(requests.back().find(">2031-05-06T10:20:30"), std::string::npos) << operation;
      }
      EXPECT_EQ(script.Requests("GetProfiles").size(), spoilt == "GetProfiles" ? 2U : 1U);
    }
}

// A thread that is told to end in the middle of a step has not done it, whatever the step may do without.
TEST_F(Load, LeavesUndoneWhatItWasStoppedIn) {
  const struct {
    const char* Operation;
    unsigned Bit;
  } cases[] = {{"GetSystemDateAndTime", 0x2},
               {"GetServices", 0x4},
               {"GetSnapshotUri", 0x40},
               {"GetNodes", 0x400},
               {"Subscribe", 0x800}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Operation);
    CScriptedCamera script;
    const auto camera = StaticCamera(script.URL());
    const CTraceKeeper trace(camera.get());
    CGXThread thread;
    script.Watch([&](const std::string& operation) {
      if (operation == c.Operation) thread.Cancel();
    });
    thread.Start(
        [](void* of) -> unsigned {
          EXPECT_FALSE(static_cast<CONVIFCam*>(of)->CheckRunState());
          return 0;
        },
        camera.get(), 0, "load");
    thread.Join();
    EXPECT_EQ(camera->RunState() & c.Bit, 0U);
    EXPECT_FALSE(trace.Has("WARNING: No Snapshot Config"));
  }
}

TEST_F(Load, SaysWhatFailedAndWaitsBehindAStreamThatDid) {
  EXPECT_EQ(m_pCamera->ServiceReport().State, GXT_REPORT::STATE::Off);
  m_Script.SetWhole("GetProfiles", CScriptedCamera::SILENT);
  EXPECT_FALSE(m_pCamera->CheckRunState());
  GXT_SERVICE_REPORT report = m_pCamera->ServiceReport();
  EXPECT_EQ(report.State, GXT_REPORT::STATE::Failed);
  EXPECT_EQ(report.Step, "profiles");
  EXPECT_EQ(report.Reason.Str(), "no answer from " + m_Script.URL("/caps-media"));
  EXPECT_GT(report.RetryMs, 0);
  m_Script.Fault("GetProfiles");
  EXPECT_TRUE(m_pCamera->CheckRunState());
  report = m_pCamera->ServiceReport();
  EXPECT_EQ(report.State, GXT_REPORT::STATE::Running);
  EXPECT_EQ(report.Refused, "GetProfiles: a fault without words");
  EXPECT_FALSE(report.LoginRefused);

  m_pCamera->StartThread("test");
  m_pCamera->SetErrorState();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(m_pCamera->ServiceReport().Step, "streams");
  EXPECT_TRUE(Eventually(20, [&] { return m_pCamera->RunState() == ALL_STEPS; }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4900));
}

}  // namespace
