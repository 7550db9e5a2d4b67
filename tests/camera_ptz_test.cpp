// Moves, zoom, stop and presets: what the camera is sent, and that the queue keeps its order and loses nothing.
#include "camera/ptz_proc.h"
#include "tests/camera_script.h"

namespace {

constexpr const char* FIELD_OF_VIEW = CONVIFCam::SPACE_FIELD_OF_VIEW;
constexpr const char* SCHEMA = " xmlns=\"http://www.onvif.org/ver10/schema\"/>";

std::string PTZPart(const std::string& space, const std::string& zoomMin, const std::string& zoomMax) {
  return "<t:PTZConfiguration token=\"PC\"><t:NodeToken>N</t:NodeToken>"
         "<t:DefaultRelativePanTiltTranslationSpace>" +
         space + "</t:DefaultRelativePanTiltTranslationSpace><t:ZoomLimits><t:Range><t:XRange><t:Min>" +
         zoomMin + "</t:Min><t:Max>" + zoomMax +
         "</t:Max></t:XRange></t:Range></t:ZoomLimits></t:PTZConfiguration>";
}

class PTZ : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(SetNetworkInterface("lo")); }

  // A loaded camera whose second profile has that PTZ configuration (empty: none).
  void Load(const std::string& ptz) {
    m_pCamera.reset();
    m_pScript = std::make_unique<CScriptedCamera>();
    m_pScript->Set("GetProfiles", CScriptedCamera::Profile("P1", "H264", "E1", 640, 480) +
                                      CScriptedCamera::Profile("P2", "JPEG", "E2", 640, 480, ptz));
    m_pScript->Set("GetCapabilities", "<d:Capabilities><t:PTZ><t:XAddr>" + m_pScript->URL("/ptz") +
                                          "</t:XAddr></t:PTZ></d:Capabilities>");
    m_pScript->Set("GetPresets",
                   "<p:Preset token=\"7\"><t:Name>Door</t:Name></p:Preset>"
                   "<p:Preset token=\"9\"><t:Name>Gate</t:Name></p:Preset>");
    for (const char* operation : {"ContinuousMove", "RelativeMove", "Stop", "GotoPreset", "SetPreset"})
      m_pScript->Set(operation, "");
    m_pCamera = StaticCamera(m_pScript->URL());
    ASSERT_TRUE(m_pCamera->CheckRunState());
  }
  size_t Asked(const char* operation) const { return m_pScript->Requests(operation).size(); }

  std::unique_ptr<CScriptedCamera> m_pScript;
  std::unique_ptr<CONVIFCam> m_pCamera;
};

TEST_F(PTZ, TellsTheCameraWhatWasAsked) {
  using C = CONVIFCam;
  const std::string fov = PTZPart(FIELD_OF_VIEW, "0", "1"), other = PTZPart("http://other", "-1", "3"),
                    still = PTZPart("", "0", "0");
  const struct {
    const char* Name;
    const std::string& PTZ;
    std::function<int(C*)> Ask;
    const char* Operation;  // null: nothing is sent
    std::string Content;    // behind the profile token
  } cases[] = {
      {"speed", other, [](C* c) { return c->MoveFrame(50, -25, 9, 9); }, "ContinuousMove",
       std::string("<Velocity><PanTilt x=\"0.50\" y=\"0.25\"") + SCHEMA + "</Velocity>"},
      {"no space", still, [](C* c) { return c->MoveFrame(-100, 0, 0, 0); }, "ContinuousMove",
       std::string("<Velocity><PanTilt x=\"-1.00\" y=\"0.00\"") + SCHEMA + "</Velocity>"},
      {"in the picture", fov, [](C* c) { return c->MoveFrame(7, 100, 0, 0); }, "RelativeMove",
       std::string("<Translation><PanTilt x=\"0.07\" y=\"-1.00\"") + SCHEMA + "</Translation>"},
      {"zoom in", other, [](C* c) { return c->ZoomInOut(-1); }, "RelativeMove",
       std::string("<Translation><Zoom x=\"0.50\"") + SCHEMA + "</Translation>"},
      {"zoom without a range", still, [](C* c) { return c->ZoomInOut(3); }, "RelativeMove",
       std::string("<Translation><Zoom x=\"-0.12\"") + SCHEMA + "</Translation>"},
      {"stop", other, [](C* c) { return c->StopMove(); }, "Stop", "<PanTilt>true</PanTilt><Zoom>true</Zoom>"},
      {"stop in the picture", fov, [](C* c) { return c->StopMove(); }, nullptr, ""},
      {"go to", fov, [](C* c) { return c->PresetControl(0, 1); }, "GotoPreset", "<PresetToken>9</PresetToken>"},
      {"store", fov, [](C* c) { return c->PresetControl(1, 0); }, "SetPreset", "<PresetToken>7</PresetToken>"},
      {"no such preset", fov, [](C* c) { return c->PresetControl(0, 2); }, nullptr, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    Load(c.PTZ);
    EXPECT_EQ(c.Ask(m_pCamera.get()), 1);
    m_pCamera->PresetControl(0, 0);  // runs behind it
    ASSERT_TRUE(Eventually(20, [&] {
      const auto seen = m_pScript->Requests("GotoPreset");
      return !seen.empty() && seen.back().find("<PresetToken>7<") != std::string::npos;
    }));
    for (const char* operation : {"ContinuousMove", "RelativeMove", "Stop", "GotoPreset", "SetPreset"}) {
      const bool expected = c.Operation != nullptr && std::string(operation) == c.Operation;
      const size_t others = std::string(operation) == "GotoPreset" ? 1 : 0;
      ASSERT_EQ(Asked(operation), (expected ? 1U : 0U) + others) << operation;
      if (!expected) continue;
      const std::string request = m_pScript->Requests(operation).front(), name = operation;
      EXPECT_NE(request.find("POST /ptz "), request.npos);
      EXPECT_NE(request.find("UsernameToken"), request.npos);
      EXPECT_NE(request.find("ver20/ptz/wsdl/" + name + "\""), request.npos);
      EXPECT_NE(request.find("<" + name +
                             " xmlns=\"http://www.onvif.org/ver20/ptz/wsdl\"><ProfileToken>P2"
                             "</ProfileToken>" +
                             c.Content + "</" + name + ">"),
                request.npos)
          << request;
    }
  }
  EXPECT_EQ(m_pCamera->NPresets(), 2);
  EXPECT_EQ(m_pCamera->PresetName(1), "Gate");
  EXPECT_EQ(m_pCamera->PresetName(2), "");
  Load("");
  EXPECT_EQ(m_pCamera->NPresets(), 0);
  EXPECT_EQ(m_pCamera->PresetName(0), "");
  for (CONVIF_Proc* const proc : std::initializer_list<CONVIF_Proc*>{
           new CCamMoveProc(1, 1), new CCamZoomProc(1), new CCamStopProc, new CCamPresetControl(0, 0)}) {
    EXPECT_EQ(proc->DoProc(m_pCamera.get()), 0);  // without PTZ
    delete proc;
  }
}

TEST_F(PTZ, ABurstOfMovesLeavesOnePendingAndKeepsTheRest) {
  Load(PTZPart("", "0", "1"));
  std::atomic<bool> release{false};
  m_pScript->Watch([&](const std::string& operation) {
    if (operation == "Stop") Eventually(20, [&] { return release.load(); });
  });
  m_pCamera->StopMove();
  ASSERT_TRUE(Eventually(20, [&] { return Asked("Stop") == 1; }));  // at work from now on
  m_pCamera->ZoomInOut(1);
  m_pCamera->ZoomInOut(1);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(m_pCamera->MoveFrame(i % 100, i % 7, 0, 0), 1);
  m_pCamera->PresetControl(0, 0);
  EXPECT_EQ(Asked("Stop"), 1U);  // not one of the callers waited for the camera
  release = true;
  ASSERT_TRUE(Eventually(20, [&] { return Asked("GotoPreset") == 1; }));
  EXPECT_EQ(Asked("RelativeMove"), 2U);
  ASSERT_EQ(Asked("ContinuousMove"), 1U);
  EXPECT_NE(m_pScript->Requests("ContinuousMove")[0].find("x=\"0.99\" y=\"-0.05\""), std::string::npos);
}

// The worker ends with the queue again and again while others push: each proc must run without another push.
TEST_F(PTZ, NoProcIsLeftLyingWhenTheWorkerEnds) {
  class CCount : public CONVIF_Proc {
   public:
    explicit CCount(std::atomic<int>* count) : m_pCount(count) {}
    int DoProc(CONVIFCam*) override { return ++*m_pCount; }

   private:
    std::atomic<int>* const m_pCount;
  };
  const auto camera = StaticCamera("http://127.0.0.1:1/x");
  std::atomic<int> ran{0};
  for (int i = 1; i <= 300; ++i) {
    camera->PushProc(std::make_unique<CCount>(&ran));
    // Not asked for at intervals: the next push is to meet the worker at its end.
    for (const auto start = Clock::now(); ran != i && SecondsSince(start) < 20;) std::this_thread::yield();
    ASSERT_EQ(ran, i);
  }
  std::thread other([&] {
    for (int i = 0; i < 300; ++i) camera->PushProc(std::make_unique<CCount>(&ran));
  });
  for (int i = 0; i < 300; ++i) camera->PushProc(std::make_unique<CCount>(&ran));
  other.join();
  EXPECT_TRUE(Eventually(20, [&] { return ran == 900; }));
}

}  // namespace
