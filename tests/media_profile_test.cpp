// Media profiles: reading them, choosing one, and what they ask the camera.
#include "host/base/gxassert.h"
#include "media/profile.h"
#include "tests/media_support.h"

#include <thread>

namespace {

std::unique_ptr<CONVIFMsg> ProfileElement(const std::string& content, const std::string& token = "P1") {
  return ParseXML("<trt:Profiles token=\"" + token + "\">" + content + "</trt:Profiles>");
}

std::string VideoOf(const std::string& encoding, int width, int height) {
  return "<tt:VideoEncoderConfiguration token=\"V\"><tt:Encoding>" + encoding +
         "</tt:Encoding><tt:Resolution><tt:Width>" + std::to_string(width) + "</tt:Width><tt:Height>" +
         std::to_string(height) + "</tt:Height></tt:Resolution></tt:VideoEncoderConfiguration>";
}

void ExpectParts(const std::string& text, const std::vector<std::string>& parts) {
  for (const std::string& part : parts)
    EXPECT_NE(text.find(part), std::string::npos) << part << "\nin\n" << text;
}

TEST(MediaProfile, ReadsTheAnswerOfACamera) {
  const auto answer = ParseXML(DataFile("kestrel_profiles.xml"));
  CProfileConfig profiles;
  ForEachChild(answer->FindResponseMSG("GetProfiles"), [&](CONVIFMsg* child) { profiles.AddProfile(child); });
  EXPECT_EQ(DumpMessage(profiles),
            "2|MainStream|Profile_1|H264|4|50|1|25|4096|1920|1080|1|SubStream|Profile_2|JPEG|70|0|2|12|2048|"
            "640|480|4");
  const CProfile& first = *profiles.Profiles();
  const CProfile& second = *first.Next();
  EXPECT_EQ(first.VideoEncoderToken() + first.AudioEncoderToken() + first.AudioEncoderType(), "VEC_1AEC_1G711");
  EXPECT_EQ(first.SampleRate(), 8000);
  EXPECT_EQ(first.PTZConfigToken() + first.NodeToken(), "PTZ_1Node_1");
  EXPECT_EQ(first.PTZRelPositionSpace(),
            "http://www.onvif.org/ver10/tptz/PanTiltSpaces/TranslationGenericSpace");
  const std::vector<float> ranges = {first.RangePan().Min,  first.RangePan().Max,  first.RangeTilt().Min,
                                     first.RangeTilt().Max, first.RangeZoom().Max, second.RangeZoom().Max};
  EXPECT_EQ(ranges, (std::vector<float>{-1.0f, 1.0f, -0.25f, 0.75f, 4.0f, 0.0f}));
  EXPECT_EQ(profiles.ProfileByToken("Profile_2"), &second);
  EXPECT_EQ(profiles.ProfileByToken("profile_2"), nullptr);
  EXPECT_EQ(second.PTZConfigToken() + second.AudioEncoderToken(), "");
  EXPECT_EQ(second.Preset(0), nullptr);

  const CProfile hostile(
      ProfileElement("<PTZConfiguration token=\"t\"><ZoomLimits><Min>-1e300</Min><Max>nan</Max>"
                     "</ZoomLimits></PTZConfiguration>")
          .get());
  EXPECT_LT(hostile.RangeZoom().Min, -1e38f);
}

TEST(MediaProfile, ReloadKeepsPTZAndClearsState) {
  CProfile profile(
      ProfileElement(
          "<Name>A</Name><PTZConfiguration token=\"ptz\"><NodeToken>n</NodeToken></PTZConfiguration>" +
          VideoOf("H264", 640, 480))
          .get());
  profile.State(CProfile::STATE_DESCRIBED);
  const int asserts = AssertCount();
  EXPECT_FALSE(profile.ReloadFrom(ProfileElement("<Name>B</Name>", "P2").get()));
  EXPECT_EQ(AssertCount(), asserts + 1);
  EXPECT_EQ(profile.State(), 0);  // also when the token does not match
  EXPECT_EQ(profile.Name(), "A");

  profile.State(CProfile::STATE_DESCRIBED);
  EXPECT_TRUE(profile.ReloadFrom(ProfileElement("<Name>B</Name>").get()));
  EXPECT_EQ(DumpMessage(profile), "B|P1|H264|0|0|0|0|0|640|480|4");  // no video element: settings stay
  EXPECT_EQ(profile.VideoEncoderToken(), "V");
  EXPECT_EQ(profile.State(), 0);
  EXPECT_EQ(profile.PTZConfigToken(), "ptz");
}

TEST(MediaProfile, NearestProfileWithEncoding) {
  CProfileConfig profiles;
  const auto offer = [&](const char* token, const char* encoding, int width, int height) {
    profiles.AddProfile(ProfileElement(VideoOf(encoding, width, height), token).get());
  };
  offer("a", "H264", 1920, 1080);
  offer("b", "h264", 720, 480);
  offer("c", "H264", 640, 560);
  offer("d", "H264", 560, 480);
  offer("e", "JPEG", 320, 240);
  offer("g", "JPEG", 2147483647, -2147483647 - 1);
  const auto chosen = [&](const char* encoding, const GXT_RESOLUTION* wanted) {
    const CProfile* profile = profiles.GetProfileWithEncoding(encoding, wanted);
    return profile != nullptr ? profile->Token() : CGXString("none");
  };
  const GXT_RESOLUTION vga = {640, 480}, full = {1920, 1080}, odd = {-2147483647 - 1, 2147483647};
  EXPECT_EQ(chosen("H264", nullptr), "a");
  EXPECT_EQ(chosen("h264", &full), "a");
  EXPECT_EQ(chosen("H264", &vga), "b");  // b, c and d are 80 away: the camera's order decides
  EXPECT_EQ(chosen("jpeg", &vga), "e");
  EXPECT_EQ(chosen("JPEG", &odd), "e");
  EXPECT_EQ(chosen("H265", nullptr), "none");
  EXPECT_EQ(chosen("H265", &vga), "none");
}

TEST(MediaProfile, AsksForTheStreamURI) {
  std::string body =
      "<e><trt:GetStreamUriResponse><trt:MediaUri><tt:Uri>rtsp://cam/a?x=1&amp;y=&lt;2&gt;</tt:Uri>"
      "<tt:Timeout>PT60S</tt:Timeout></trt:MediaUri> </trt:GetStreamUriResponse></e>";
  CScriptedServer server([&](const std::string&) { return HTTPAnswer(body); });
  CFakeCamera camera(server.Port());
  CProfile profile(ProfileElement("<Name>A</Name>", "tok en").get());
  EXPECT_TRUE(profile.LoadStreamUri(&camera));
  EXPECT_EQ(profile.StreamUri(), "rtsp://cam/a?x=1&y=<2>");
  ExpectParts(
      server.Request(0),
      {"POST /onvif/media HTTP/1.1\r\n", "action=\"http://www.onvif.org/ver10/media/wsdl/GetStreamUri\"",
       "xmlns:m=\"http://www.onvif.org/ver10/media/wsdl\" "
       "xmlns:tt=\"http://www.onvif.org/ver10/schema\"><s:Header>",
       "<GetStreamUri xmlns=\"http://www.onvif.org/ver10/media/wsdl\"><StreamSetup>"
       "<Stream xmlns=\"http://www.onvif.org/ver10/schema\">RTP-Unicast</Stream>"
       "<Transport xmlns=\"http://www.onvif.org/ver10/schema\"><Protocol>RTSP</Protocol></Transport>"
       "</StreamSetup><ProfileToken>tok en</ProfileToken></GetStreamUri></s:Body></s:Envelope>"});
  for (const char* answer :
       {"<e><s:Fault>NotAuthorized</s:Fault></e>",
        "<e><trt:GetStreamUriResponse><x>1</x></trt:GetStreamUriResponse></e>",
        "<e><GetStreamUriResponse><MediaUri><Timeout>1</Timeout></MediaUri> </GetStreamUriResponse></e>",
        "not XML"}) {
    body = answer;
    EXPECT_FALSE(profile.LoadStreamUri(&camera)) << answer;
  }
  EXPECT_EQ(profile.StreamUri(), "rtsp://cam/a?x=1&y=<2>");  // a failure keeps the old one
}

TEST(MediaProfile, AsksForPresets) {
  std::string body = DataFile("minicam_presets.xml");
  CScriptedServer server([&](const std::string&) { return body.empty() ? body : HTTPAnswer(body); });
  CFakeCamera camera(server.Port());
  camera.m_bLogin = false;
  CProfile profile(ProfileElement("<Name>A</Name>").get());
  EXPECT_TRUE(profile.LoadPresetConfig(&camera));
  ASSERT_EQ(profile.NPresets(), 3);
  EXPECT_EQ(profile.Preset(1)->Token(), "2");
  EXPECT_EQ(profile.Preset(1)->Name(), "Back door");
  EXPECT_EQ(profile.Preset(2)->Name(), "");
  EXPECT_EQ(profile.Preset(3), nullptr);
  EXPECT_EQ(profile.Preset(-1), nullptr);

  ExpectParts(server.Request(0),
              {"POST /onvif/ptz HTTP/1.1\r\n", "action=\"http://www.onvif.org/ver20/ptz/wsdl/GetPresets\"",
               "<GetPresets xmlns=\"http://www.onvif.org/ver20/ptz/wsdl\"><ProfileToken>P1</ProfileToken>"
               "</GetPresets></s:Body></s:Envelope>"});
  EXPECT_EQ(server.Request(0).find("s:Header"), std::string::npos);

  body = "<e><s:Fault>busy</s:Fault></e>";
  EXPECT_TRUE(profile.LoadPresetConfig(&camera));  // answered, though not with presets: the old ones stay
  EXPECT_EQ(profile.NPresets(), 3);
  body = "";
  EXPECT_FALSE(profile.LoadPresetConfig(&camera));
  const auto held = profile.Preset(0);
  profile.RemovePresets();
  EXPECT_EQ(profile.NPresets(), 0);
  EXPECT_EQ(held->Name(), "Gate");
}

TEST(MediaProfile, DescribesItsStreamOnce) {
  // Longer than what is kept of an answer.
  std::string sdp =
      "m=audio 0 RTP/AVP 8\r\na=control:a\r\nm=video 0 RTP/AVP 98\r\n"
      "a=fmtp:98 sprop-parameter-sets=QUJD\r\na=control:v\r\n";
  while (sdp.size() < 4000) sdp += "a=filler:0123456789012345678901234567890123456789\r\n";
  CProfile profile(ProfileElement(VideoOf("H264", 640, 480) +
                                  "<AudioEncoderConfiguration token=\"A\"><Encoding>G711</Encoding>"
                                  "<SampleRate>16000</SampleRate></AudioEncoderConfiguration>")
                       .get());
  std::atomic<bool> reload = false, refuse = false;
  CScriptedServer server([&](const std::string& request) {
    if (request.starts_with("POST"))
      return HTTPAnswer("<e><GetStreamUriResponse><MediaUri><Uri>" +
                        CFakeCamera(server.Port()).StreamURL().Str() +
                        "</Uri></MediaUri> </GetStreamUriResponse></e>");
    const bool describe = request.find("Accept: application/sdp") != request.npos;
    if (describe && refuse) return std::string();
    if (describe && reload.exchange(false)) {
      const std::string old = DescribeAnswer(sdp);
      sdp.replace(sdp.find("control:v"), 9, "control:new");
      profile.ReloadFrom(ProfileElement("<Name>new</Name>").get());
      return old;
    }
    return request.starts_with("DESCRIBE") ? DescribeAnswer(sdp) : "RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n";
  });
  CFakeCamera camera(server.Port());
  ASSERT_TRUE(profile.LoadStreamUri(&camera));
  ASSERT_TRUE(profile.LoadRTSPConfig(&camera));
  EXPECT_EQ(profile.State(), 0);  // the caller's to set
  ExpectParts(server.Requests().back(),
              {"DESCRIBE " + camera.StreamURL().Str() + " RTSP/1.0\r\n", "\r\nAccept: application/sdp\r\n"});

  CRTSPProfile video, sound;
  profile.ConfigureVideo(&video);
  EXPECT_EQ(video.URL(), camera.StreamURL());
  EXPECT_EQ(video.ControlURL(), camera.StreamURL() + "/v");
  EXPECT_EQ(video.FormatTag(), 98);
  EXPECT_EQ(video.NStartupData(), 6);
  EXPECT_EQ(video.Resolution().Width, 640);
  profile.ConfigureAudio(&sound);
  EXPECT_EQ(sound.ControlURL(), camera.StreamURL() + "/a");
  EXPECT_EQ(sound.FormatTag(), 8);
  EXPECT_EQ(sound.Bitrate(), 16000);

  EXPECT_TRUE(profile.EnsureRTSPConfig(&camera));
  EXPECT_EQ(profile.State(), CProfile::STATE_DESCRIBED);
  const size_t requests = server.Requests().size();
  EXPECT_TRUE(profile.EnsureRTSPConfig(&camera));
  EXPECT_EQ(server.Requests().size(), requests);  // described: nothing is asked

  // A setting changes while the answer is under way: what was asked before must not stand for what comes after.
  profile.State(0);
  reload = true;
  EXPECT_TRUE(profile.EnsureRTSPConfig(&camera));
  EXPECT_EQ(profile.ControlURLVideo(), camera.StreamURL() + "/new");
  EXPECT_EQ(profile.State(), CProfile::STATE_DESCRIBED);
  profile.State(0);

  refuse = true;  // a failure changes nothing
  EXPECT_FALSE(profile.EnsureRTSPConfig(&camera));
  EXPECT_EQ(profile.State(), 0);
  profile.RemoveAll();
  EXPECT_EQ(profile.NStartupData(), 0);
  EXPECT_EQ(profile.ControlURLVideo(), camera.StreamURL() + "/new");
}

TEST(MediaProfile, ReadersRunBesideReloads) {
  // The connection thread reloads, the queue thread loads presets, others read: the thread sanitizer watches.
  CScriptedServer server([](const std::string&) {
    return HTTPAnswer(
        "<e><GetPresetsResponse><Preset token=\"1\"><Name>Gate</Name></Preset> </GetPresetsResponse></e>");
  });
  CFakeCamera camera(server.Port());
  auto profiles = std::make_shared<CProfileConfig>();
  CProfile* const profile = profiles->AddProfile(ProfileElement(VideoOf("H264", 640, 480)).get());
  std::atomic<bool> stop = false;
  std::atomic<int> reads = 0;
  std::thread reader([&, generation = std::shared_ptr<const CProfileConfig>(profiles)] {
    while (!stop) {
      CRTSPProfile rtsp;
      profile->ConfigureVideo(&rtsp);
      const int width = rtsp.Resolution().Width;
      EXPECT_TRUE(width == 640 || width == 320) << width;
      const auto preset = profile->Preset(0);
      EXPECT_TRUE(preset == nullptr || preset->Name() == "Gate");
      EXPECT_EQ(DumpMessage(*generation).substr(0, 2), "1|");
      ++reads;
    }
  });
  for (int i = 0; i < 20 || reads < 20; ++i) {
    EXPECT_TRUE(profile->LoadPresetConfig(&camera));
    EXPECT_TRUE(profile->ReloadFrom(ProfileElement(VideoOf("H264", i % 2 ? 640 : 320, 480)).get()));
    profile->RemovePresets();
  }
  stop = true;
  profiles.reset();
  reader.join();
}

}  // namespace
