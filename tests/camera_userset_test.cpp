// Bringing a camera in line with the user's settings: what it is sent, what is said, and what is left in the
// entry.
#include "camera/ONVIF_proc.h"
#include "tests/camera_script.h"

#include <regex>

namespace {

std::string Encoder(const std::string& element, int quality, int rate, int kbits, int gov) {
  const auto number = [](const char* name, int value) {
    return std::string("<t:") + name + ">" + std::to_string(value) + "</t:" + name + ">";
  };
  return "<m:" + element +
         " token=\"E1\"><t:Name>Enc</t:Name><t:UseCount>2</t:UseCount><t:Encoding>H264</t:Encoding>"
         "<t:Resolution>" +
         number("Width", 640) + number("Height", 480) + "</t:Resolution>" + number("Quality", quality) +
         "<t:RateControl>" + number("FrameRateLimit", rate) + number("EncodingInterval", 1) +
         number("BitrateLimit", kbits) + "</t:RateControl><t:H264>" + number("GovLength", gov) +
         "<t:H264Profile>Main</t:H264Profile></t:H264></m:" + element + ">";
}

class CNotice : public CNotifySink {
 public:
  void OnNotify(int, int code) override { Code = code; }
  int Code = 0;
};

// The body of the only request for the operation, without the namespace that most of its elements name.
std::string BodyOf(const CScriptedCamera& script, const char* operation) {
  const auto requests = script.Requests(operation);
  if (requests.size() != 1) return std::to_string(requests.size()) + " requests";
  const std::string body = requests[0].substr(requests[0].find("<", requests[0].find("<s:Body") + 1));
  return std::regex_replace(body, std::regex(" xmlns=\"[^\"]*/schema\""), "");
}

}  // namespace

TEST(UserSettings, AreBroughtToTheCameraStepByStep) {
  ASSERT_TRUE(SetNetworkInterface("lo"));
  CScriptedCamera script;
  const auto camera = StaticCamera(script.URL());
  script.Set("GetVideoEncoderConfigurations", Encoder("Configurations", 50, 25, 2000, 30));
  ASSERT_TRUE(camera->CheckRunState());
  // One H.264 entry that gives profile P2, which has another encoder, E1, and leaves the H.264 profile open.
  SetEntries(camera.get(), {Entry("P2", RTP_TRANSPORT_TCP, "E1", "H264", "70|12|1|13|999|800|600|4")}, {});
  CResolutionDescriptor descriptor;
  camera->LoadResolutionDescriptor(0, &descriptor, RTSP_PROFILE_H264);
  const CUserSettingsRef entry = camera->FindUserSettings(descriptor.DriverDataPtr());
  ASSERT_NE(entry, nullptr);

  script.Set("SetVideoEncoderConfiguration", "");
  script.Set("AddVideoEncoderConfiguration", "");
  const std::vector<std::string> steps = {"Configuring Encoder...",
                                          "Reloading Encoder...",
                                          "WARNING: Encoder settings didn't stick, changing our params",
                                          "Configuring Profile Encoder Token...",
                                          "Reloading Profile...",
                                          "Reloading Stream Uri...",
                                          "Loading RTSP Config...",
                                          "FAILED"};
  const CTraceKeeper trace(camera.get());
  EXPECT_EQ(CCheckUserSet(entry.get()).DoProc(camera.get()), 0);
  EXPECT_EQ(trace.Lines(), (std::vector<std::string>{steps[0], steps[1], "FAILED"}));
  EXPECT_EQ(
      BodyOf(script, "SetVideoEncoderConfiguration"),
      "<SetVideoEncoderConfiguration xmlns=\"http://www.onvif.org/ver10/media/wsdl\"><Configuration "
      "token=\"E1\">"
      "<Name>Enc</Name><UseCount>2</UseCount><Encoding>H264</Encoding><Resolution><Width>800</Width><Height>600"
      "</Height></Resolution><Quality>70</Quality><RateControl><FrameRateLimit>13</FrameRateLimit>"
      "<EncodingInterval>1</EncodingInterval><BitrateLimit>999</BitrateLimit></RateControl><H264><GovLength>12"
      "</GovLength><H264Profile>Main</H264Profile></H264><Multicast><Address><Type>IPv4</Type><IPv4Address>"
      "239.255.76.67</IPv4Address></Address><Port>5568</Port><TTL>0</TTL><AutoStart>false</AutoStart>"
      "</Multicast><SessionTimeout>PT1M</SessionTimeout></Configuration><ForcePersistence>true"
      "</ForcePersistence></SetVideoEncoderConfiguration></s:Body></s:Envelope>");
  EXPECT_EQ(entry->Settings()->H264Profile(), H264_PROFILE_MAIN);

  script.Set("GetVideoEncoderConfiguration", Encoder("Configuration", 60, 15, 1024, 10));
  script.Set("GetProfile", "<m:Profile token=\"P2\"><t:Name>P2</t:Name>" +
                               Encoder("VideoEncoderConfiguration", 60, 15, 1024, 10) + "</m:Profile>");
  CNotice notice;
  camera->AddONVIF_Client(&notice);
  camera->PushProc(std::make_unique<CCheckUserSet>(entry.get()));
  EXPECT_TRUE(Eventually(20, [&] {
    camera->OnComponentIdle();
    return notice.Code == 0x010002;  // the second profile, the first encoder
  }));
  camera->RemoveONVIF_Client(&notice);
  const std::vector<std::string> lines = trace.Lines();
  EXPECT_EQ(std::vector<std::string>(lines.begin() + 3, lines.end()),
            steps);  // nobody is at the stream's address
  EXPECT_EQ(BodyOf(script, "AddVideoEncoderConfiguration"),
            "<AddVideoEncoderConfiguration xmlns=\"http://www.onvif.org/ver10/media/wsdl\"><ProfileToken>P2"
            "</ProfileToken><ConfigurationToken>E1</ConfigurationToken></AddVideoEncoderConfiguration></s:Body>"
            "</s:Envelope>");
  // The camera's own rates; encoding and size stay the user's.
  const CONVIFSettings* const left = entry->Settings();
  EXPECT_EQ(left->Quality(), 60);
  EXPECT_EQ(left->FrameRate(), 15);
  EXPECT_EQ(left->Bitrate(), 1024);
  EXPECT_EQ(left->GovLength(), 10);
  EXPECT_EQ(left->Resolution().Width, 800);
}
