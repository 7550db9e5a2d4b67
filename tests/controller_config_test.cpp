// The camera's configuration record as it passes between driver and tools, and the texts shown to people.
#include "controller/core/options.h"
#include "controller/site/camera_config.h"
#include "controller/site/load_progress.h"
#include "controller/site/profile_request.h"
#include "controller/terminal/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// One profile, one encoder, an H.264 list of one and a JPEG list of two, item by item.
std::vector<GXT_ITEM> Record() {
  const std::vector<GXT_ITEM> h264 = {"H264", 4, 30, 1, 15, 2048, 1280, 720, 1};
  const std::vector<GXT_ITEM> jpeg = {"JPEG", 60, 0, 1, 10, 4096, 640, 480, 4};
  std::vector<GXT_ITEM> r;
  const auto add = [&r](std::vector<GXT_ITEM> items) { r.insert(r.end(), items.begin(), items.end()); };
  add({1, "main", "P1"});
  add(h264);
  add({1, "enc", "E1", 0, 100});
  add({2, 640, 480, 320, 240, 1, 2, 3, 4, 5, 6, 7, 8, 0});      // JPEG options
  add({1, 1280, 720, 9, 10, 11, 12, 13, 14, 15, 16, 2, 3, 1});  // H.264 options
  add(h264);
  add({"P1", 1, "dvr", "P1", "<DEFAULT>", 1});
  add(h264);
  add({"", 2, "one", "P1", "E1", 1});
  add(jpeg);
  add({"two", "P2", "E2", 0});
  add(jpeg);
  return r;
}

TEST(CameraConfig, ReadsEveryFieldAtItsPlace) {
  CCameraConfig config;
  ASSERT_TRUE(ReadCameraConfig(CGXMSG(CGXItems(Record())), &config));
  ASSERT_EQ(config.Profiles.size(), 1u);
  EXPECT_EQ(config.Profiles[0].Token, "P1");
  EXPECT_EQ(config.Profiles[0].Settings.GovLength, 30);
  EXPECT_EQ(config.Profiles[0].Settings.Size.Width, 1280);
  ASSERT_EQ(config.Encoders.size(), 1u);
  const CConfigEncoder& encoder = config.Encoders[0];
  EXPECT_EQ(encoder.Quality.Max, 100);
  ASSERT_EQ(encoder.JPEG.Sizes.size(), 2u);
  EXPECT_EQ(encoder.JPEG.Sizes[1].Height, 240);
  EXPECT_EQ(encoder.JPEG.Bitrate.Max, 8);
  EXPECT_EQ(encoder.H264.Interval.Min, 9);
  EXPECT_EQ(encoder.H264.GovLength.Max, 12);
  EXPECT_THAT(encoder.H264.H264Profiles, ElementsAre(3, 1));
  EXPECT_EQ(config.H264.DefaultProfile, "P1");
  ASSERT_EQ(config.JPEG.Streams.size(), 2u);
  EXPECT_EQ(config.JPEG.Streams[1].Transport, RTP_TRANSPORT_UDP);
  EXPECT_EQ(config.JPEG.Streams[1].Settings.Bitrate, 4096);

  CGXMSG back;
  WriteUserStreams(config, &back);
  const std::vector<GXT_ITEM> all = Record();
  const std::vector<GXT_ITEM> users(all.end() - static_cast<long>(back.Items().Items().size()), all.end());
  EXPECT_EQ(back.Items().Items(), users) << "the user lists go back as they came";
}

TEST(CameraConfig, DamagedRecordIsRefused) {
  const std::vector<GXT_ITEM> good = Record();
  for (size_t cut = 0; cut < good.size(); ++cut) {
    CCameraConfig config;
    EXPECT_FALSE(
        ReadCameraConfig(CGXMSG(CGXItems({good.begin(), good.begin() + static_cast<long>(cut)})), &config))
        << cut;
  }
  for (const int count : {-1, 2, 100000, INT32_MAX}) {
    std::vector<GXT_ITEM> bad = good;
    bad[0] = count;
    CCameraConfig config;
    EXPECT_FALSE(ReadCameraConfig(CGXMSG(CGXItems(bad)), &config)) << count;
  }
}

TEST(LoadProgress, FailureNamesItsStepUntilThePassGetsFurther) {
  CLoadProgress progress;
  for (const char* line : {"Looking for Service URL...", "Success", "Loading Media URLs...",
                           "WARNING: Bad Reply from GetServices()", "Success", "Loading Encoder Configs..."})
    progress.Add(line);
  EXPECT_FALSE(progress.Failed());
  EXPECT_EQ(progress.Step(), "Loading Encoder Configs...");
  progress.Add("FAILED");
  EXPECT_TRUE(progress.Failed());
  EXPECT_EQ(progress.Reason(), "Loading Encoder Configs... FAILED");
  progress.Add("Loading Encoder Configs...");
  EXPECT_TRUE(progress.Failed()) << "trying again is not yet better";
  progress.Add("ERROR: no reply");
  progress.Add("FAILED");
  EXPECT_EQ(progress.Reason(), "Loading Encoder Configs... FAILED (ERROR: no reply)");
  progress.Add("Success");
  EXPECT_FALSE(progress.Failed());
  EXPECT_EQ(progress.LastLine(), "Success");
  const std::string notice = "Src \x1B[2JX Key : Data " + std::string(100000, 'x') + "...";
  for (size_t i = 0; i < CLoadProgress::LINES_MAX; ++i) progress.Add(notice);
  progress.Add("Loading Encoder Configs...");
  for (size_t i = 0; i < CLoadProgress::LINES_MAX; ++i) progress.Add(notice);
  EXPECT_THAT(progress.Lines(), testing::Contains("Loading Encoder Configs..."))
      << "a reload behind many events";
  EXPECT_EQ(progress.Step(), "Loading Encoder Configs...");
  EXPECT_LE(progress.LastLine().size(), CLoadProgress::LINE_BYTES + 3);
  EXPECT_THAT(progress.LastLine(), testing::StartsWith("Src ?[2JX"));
  EXPECT_EQ(progress.Lines().size(), CLoadProgress::LINES_MAX);
}

TEST(ServiceURL, MustNameAHostAndAPath) {
  const struct {
    const char* URL;
    const char* Problem;  // null: good
  } cases[] = {{"http://10.0.0.1/onvif/device_service", nullptr},
               {"http://cam:8080/", nullptr},
               {"http://10.0.0.1", "has no path"},
               {"https://10.0.0.1/x", "must begin with http://"},
               {"http:///x", "names no host"},
               {"http://cam:0/x", "no usable port"},
               {"http://cam:80a/x", "no usable port"}};
  for (const auto& c : cases) {
    std::string error;
    EXPECT_EQ(CheckServiceURL(c.URL, &error), c.Problem == nullptr) << c.URL;
    EXPECT_THAT(error, HasSubstr(c.Problem == nullptr ? "" : c.Problem));
  }
}

TEST(Notices, AByteOf255StandsForAny) {
  EXPECT_TRUE(NoticeMatches(0x010203, 0x010203));
  EXPECT_FALSE(NoticeMatches(0x010203, 0x010303));
  EXPECT_TRUE(NoticeMatches(0x010203, 0x01FF03));
  EXPECT_TRUE(NoticeMatches(0xFF0203, 0x050203));
}

// Whatever a camera calls itself must not steer the terminal, nor break the summary.
TEST(Report, HostileTextsStayTextAndTroubleIsTold) {
  EXPECT_EQ(Printable("a\033[2Jb\r\n\x7F\xC2\x9B\xFF ä…"), "a?[2Jb????? ä…");
  CCameraStatus status;
  status.ID = 1;
  status.Model = "M\xFF\033]0;x\a";
  status.LastLine = std::string(300, 'x');
  for (const std::string& line : CameraLines(status, 80)) {
    EXPECT_EQ(line.find('\033'), std::string::npos);
    EXPECT_LE(line.size(), 82u);  // the mark of a cut is three bytes wide
  }
  EXPECT_THAT(SummaryText({status}), HasSubstr("\"seconds_to_running\": null"));

  status.Streams = {{"JPEG", 640, 480, 0, -1, "failed", "the login was refused", 4200},
                    {"H264", 640, 480, 60, 15, "running", "", -1}};
  status.Dropped = 7;
  status.Recordings = {"a.mp4"};
  std::string text;
  for (const std::string& line : CameraLines(status, 200)) text += line + "\n";
  EXPECT_THAT(text, HasSubstr("JPEG stream failed: the login was refused, tried again in 5 s"));
  EXPECT_THAT(text, HasSubstr("60.0 fps (slices; 15.0 pictures)"));
  EXPECT_THAT(text, HasSubstr("7 pictures dropped"));
  EXPECT_THAT(SummaryText({status}), HasSubstr("\"next_try_ms\": 4200"));
}

}  // namespace
