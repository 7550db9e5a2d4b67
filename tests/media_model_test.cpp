// The media model over the generations that a camera's reloads make.
#include "media/media_model.h"

#include "tests/media_support.h"

namespace {

std::shared_ptr<CProfileConfig> Generation(int width, const char* token = "P1") {
  auto profiles = std::make_shared<CProfileConfig>();
  profiles->AddProfile(
      ParseXML(std::string("<p:Profiles token=\"") + token +
               "\"><t:VideoEncoderConfiguration token=\"V\"><t:Encoding>H264</t:Encoding>"
               "<t:Resolution><t:Width>" +
               std::to_string(width) +
               "</t:Width><t:Height>480</t:Height></t:Resolution></t:VideoEncoderConfiguration>"
               "<t:AudioEncoderConfiguration token=\"A\"><t:Encoding>G711</t:Encoding>"
               "</t:AudioEncoderConfiguration></p:Profiles>")
          .get());
  return profiles;
}

TEST(MediaModel, KeepsWhatAStreamWasDescribedAsOverAReload) {
  std::string path = "/live/1";
  CScriptedServer server([&](const std::string& request) {
    if (request.starts_with("POST"))
      return HTTPAnswer("<e><GetStreamUriResponse><MediaUri><Uri>rtsp://127.0.0.1:" +
                        std::to_string(server.Port()) + path + "</Uri></MediaUri> </GetStreamUriResponse></e>");
    return request.starts_with("DESCRIBE")
               ? DescribeAnswer(
                     "m=audio 0 RTP/AVP 8\r\na=control:a\r\nm=video 0 RTP/AVP 98\r\n"
                     "a=fmtp:98 sprop-parameter-sets=QUJD\r\na=control:v\r\n")
               : "RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n";
  });
  CFakeCamera camera(server.Port());
  CMediaModel model;
  model.Take(Generation(640));
  EXPECT_TRUE(model.LoadDefaultUserSettings());
  const auto startupBytes = [&model] { return model.DVRProfile(0)->NStartupData(); };
  ASSERT_TRUE(model.DVRProfile(0)->LoadStreamUri(&camera));
  EXPECT_EQ(model.AudioProfile(), nullptr);
  ASSERT_TRUE(model.DVRProfile(0)->EnsureRTSPConfig(&camera));
  EXPECT_EQ(startupBytes(), 6);

  // The camera is loaded anew: recorder and microphone are answered meanwhile and afterwards, entries that
  // follow the camera have its new size, and the next stream start describes the stream again.
  const CUserSettingsRef entry = model.DVRSettings(0);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->Settings()->Resolution().Width, 640);
  model.Take(Generation(320));
  EXPECT_EQ(entry->Settings()->Resolution().Width, 320);
  EXPECT_EQ(startupBytes(), 6);
  EXPECT_NE(model.AudioProfile(), nullptr);
  ASSERT_TRUE(model.DVRProfile(0)->LoadStreamUri(&camera));
  EXPECT_EQ(startupBytes(), 6);
  EXPECT_NE(model.AudioProfile(), nullptr);
  EXPECT_EQ(model.DVRProfile(0)->State(), 0);

  // Another stream, another profile and another camera have nothing of it.
  path = "/live/2";
  ASSERT_TRUE(model.DVRProfile(0)->LoadStreamUri(&camera));
  EXPECT_EQ(startupBytes(), 0);
  EXPECT_EQ(model.AudioProfile(), nullptr);
  ASSERT_TRUE(model.DVRProfile(0)->EnsureRTSPConfig(&camera));
  model.Take(Generation(640, "P2"));
  EXPECT_EQ(model.DVRProfile(0), nullptr);
  EXPECT_EQ(model.AudioProfile(), nullptr);
  model.Take(Generation(640));
  ASSERT_TRUE(model.DVRProfile(0)->LoadStreamUri(&camera));
  ASSERT_TRUE(model.DVRProfile(0)->EnsureRTSPConfig(&camera));
  model.ForgetCamera();
  EXPECT_EQ(model.DVRProfile(0), nullptr);
  model.Take(Generation(640));
  EXPECT_EQ(startupBytes(), 0);
}

}  // namespace
