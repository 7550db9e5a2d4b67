// The commands as people use them: a controller in the background with the real driver, simulated cameras, and
// the controller's commands from outside. Judged by what the cameras say and by what stands in their pictures.
#include "sim/frame_code.h"
#include "tests/support/camsim_process.h"
#include "tests/support/controller_process.h"
#include "tests/support/jpeg_judge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <cmath>
#include <filesystem>
#include <vector>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr char PTZ[] = "Acme SpeedDome 20", DOOR[] = "VIVOTEK IP8133W", ALARM[] = "Orvell OV-4 Bullet";

class Commands : public CControllerTest {
 protected:
  void Begin() { Start("--user admin --discover --record"); }
  bool HavePictures(size_t cameras) const {
    return AllBecome(cameras, [](const Json& camera) { return camera["jpeg_frames"] > 0; });
  }

  // Whether the PTZ camera's pictures come to be as `there` likes.
  bool Shows(const std::function<bool(const CFrameCode&, const DecodedPicture&)>& there) const {
    return Eventually(60, [&] {
      const Json camera = Camera(PTZ);
      if (!camera.contains("pictures") || camera["pictures"].empty()) return false;
      const std::string jpeg = Text(camera["pictures"][0]);
      const DecodedPicture p = DecodeJPEG({jpeg.begin(), jpeg.end()});
      if (p.Width == 0) return false;
      std::vector<uint8_t> grey;
      for (size_t i = 0; i < p.Pixels.size(); i += 3)
        grey.push_back(static_cast<uint8_t>((p.Pixels[i] + 2 * p.Pixels[i + 1] + p.Pixels[i + 2]) / 4));
      CFrameCode code;
      const int height = static_cast<int>(grey.size()) / p.Width;
      return ReadFrameCode(grey.data(), p.Width, p.Width, height, &code) && there(code, p);
    });
  }
  bool ShowsPosition(double pan, double tilt, double zoom) const {
    return Shows([=](const CFrameCode& code, const DecodedPicture&) {
      return std::abs(code.Pan - pan) < 0.02 && std::abs(code.Tilt - tilt) < 0.02 &&
             std::abs(code.Zoom - zoom) < 0.02;
    });
  }
  bool ShowsSize(int width, int height) const {
    return Shows([=](const CFrameCode&, const DecodedPicture& picture) {
      return picture.Width == width && picture.Pixels.size() == size_t{3} * static_cast<size_t>(width * height);
    });
  }
  // Commands that are refused, with this in their complaint.
  void Complains(const std::vector<std::pair<const char*, const char*>>& commands) const {
    for (const auto& [command, complaint] : commands) {
      const CCommandResult result = Ask(command);
      EXPECT_EQ(result.status, 1) << command;
      EXPECT_THAT(result.output, HasSubstr(complaint)) << command;
    }
  }
};

TEST_F(Commands, MoveCamerasAsTheirPicturesShow) {
  CCamsim sim({"--camera", "ptz", "door", "--quirk", "1:ptz_space=fov"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  Begin();
  ASSERT_TRUE(HavePictures(2));

  // Relative: parts of half a picture; the picture at zoom 0 is half a circle's quarter wide.
  Good("move 127.0.0.11 --pan 40");
  EXPECT_TRUE(ShowsPosition(0.1, 0, 0)) << "to the right";
  Good("move 127.0.0.11 --tilt 50");
  EXPECT_TRUE(ShowsPosition(0.1, -0.3, 0)) << "and down";
  Good("zoom 127.0.0.11 in");
  EXPECT_TRUE(ShowsPosition(0.1, -0.3, 0.125));
  Good("zoom 127.0.0.11 out");
  EXPECT_TRUE(ShowsPosition(0.1, -0.3, 0));

  const Json presets = Good("presets \"Acme SpeedDome 20\"")["presets"];
  ASSERT_EQ(presets.size(), 3u);
  EXPECT_EQ(presets[1], (Json{{"number", 2}, {"name", "Car park"}}));
  Good("store-preset 127.0.0.11 Overview");
  EXPECT_TRUE(Eventually(20, [&] { return sim.Camera(1)["presets"][2]["at"]["tilt"] < -0.25; }));
  Good("goto-preset 127.0.0.11 \"Car park\"");
  EXPECT_TRUE(ShowsPosition(0.5, -0.2, 0.3));
  Good("goto-preset 127.0.0.11 3");
  EXPECT_TRUE(ShowsPosition(0.1, -0.3, 0));

  // Continuous, after the camera says so when it is loaded anew.
  ASSERT_TRUE(sim.Quirks(1, {{"ptz_space", "continuous"}}));
  ASSERT_FALSE(sim.Post("/cameras/1/power", {{"on", false}}).is_null());
  ASSERT_FALSE(sim.Post("/cameras/1/power", {{"on", true}}).is_null());
  EXPECT_TRUE(Eventually(60, [&] {
    Ask("move 127.0.0.11 --pan -30");
    return sim.Camera(1)["ptz"]["moving"] == true;
  }));
  EXPECT_TRUE(Shows([](const CFrameCode& code, const auto&) { return code.Pan < -0.1; }))
      << "it goes on to the left";
  Good("stop 127.0.0.11");
  EXPECT_TRUE(Eventually(20, [&] { return sim.Camera(1)["ptz"]["moving"] == false; }));

  Complains({{"move 127.0.0.12 --pan 10", "cannot pan or tilt"},
             {"move 127.0.0.11", "neither pan nor tilt"},
             {"move 127.0.0.11 --pan 101", "-100 to 100"},
             {"zoom 127.0.0.11 sideways", "in or out"},
             {"goto-preset 127.0.0.11 Nowhere", "no preset 'Nowhere'"},
             {"move 127.0.0.99 --pan 1", PTZ}});
  End();
  Complains({{"status", "no controller runs there"}});
}

TEST_F(Commands, ChangedStreamsAreRunKeptAndNotForced) {
  const std::vector<std::string> camera = {"--camera", "ptz"};
  {
    CCamsim sim(camera);
    ASSERT_TRUE(sim.Ready()) << sim.Output();
    Begin();
    ASSERT_TRUE(HavePictures(1));
    const Json answer = Good("set-stream 1 jpeg 1 --size 320x240");
    EXPECT_EQ(answer["stream"]["encoder"], "VE_2") << "the one that runs the profile";
    EXPECT_TRUE(answer["differences"].empty()) << answer;
    EXPECT_TRUE(ShowsSize(320, 240));

    // This camera announces no range of bit rates for JPEG: it is the judge, not the driver's own range.
    EXPECT_EQ(Good("set-stream 1 jpeg 1 --bitrate 100 --fps 9")["stream"]["settings"]["bitrate"], 100);
    EXPECT_EQ(sim.Camera(1)["encoders"][1]["fps"], 9);

    ASSERT_TRUE(sim.Quirks(1, {{"encoder_set", "round"}}));
    const Json rounded = Good("set-stream 1 h264 1 --bitrate 1500");
    const Json kept = sim.Camera(1)["encoders"][0]["bitrate_kbit"];
    EXPECT_EQ(rounded["differences"]["bitrate"], (Json{{"wanted", 1500}, {"camera", kept}})) << rounded;
    EXPECT_EQ(Good("streams 1")["streams"][0]["settings"]["bitrate"], kept);

    // A further JPEG stream moves the recorded one along in the list; the recording goes on.
    Good("set-stream 1 jpeg 2 --profile Profile_3");
    const int64_t recorded = Camera(PTZ).value("h264_frames", 0);
    EXPECT_TRUE(AllBecome(1, [&](const Json& now) {
      return now["streams"].size() == 3 && now["h264_frames"] > recorded + 20;
    })) << Camera(PTZ);
    Complains({{"set-stream 1 jpeg 1 --size 333x222", "it offers 1280x720"},
               {"set-stream 1 jpeg 1 --size wide", "640x480"},
               {"set-stream 1 jpeg 1 --fps 1000", "encoder VE_2 takes"},
               {"set-stream 1 jpeg 1 --fps 7", "was not asked"},
               {"set-stream 1 jpeg 4 --fps 5", "no stream jpeg 4"},
               {"set-stream 1 jpeg 2 --encoder VE_2 --size 176x144", "wants something else"},
               {"set-stream 1 jpeg 1 --profile Nothing", "no profile 'Nothing'"},
               {"set-stream 1 movie 1 --fps 5", "jpeg or h264"}});
    End();
  }
  // A camera that has forgotten everything, and a controller with nothing but the site file.
  CCamsim sim(camera);
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  Begin();
  ASSERT_TRUE(HavePictures(1));
  EXPECT_TRUE(ShowsSize(320, 240));

  ASSERT_TRUE(sim.Quirks(1, {{"encoder_set", "refuse"}}));
  const auto asked = [&sim] { return sim.Camera(1)["requests"].value("SetVideoEncoderConfiguration", 0); };
  const int before = asked();
  const auto start = Clock::now();
  const CCommandResult refused = Ask("set-stream 1 jpeg 1 --size 176x144");
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.output, AllOf(HasSubstr("jpeg 1"), HasSubstr("the camera has \"320x240\"")));
  EXPECT_TRUE(
      Eventually(20, [&] { return Ask("streams 1").output.find("jpeg 1 is refused") != std::string::npos; }));
  EXPECT_TRUE(Eventually(60, [&] { return asked() >= before + 3; })) << "it goes on being asked";
  const int often = asked() - before;
  EXPECT_LE(often, 1 + SecondsSince(start) / 5);
  EXPECT_TRUE(ShowsSize(320, 240)) << "pictures come all the same";
  ASSERT_TRUE(sim.Quirks(1, {{"encoder_set", "exact"}}));
  EXPECT_TRUE(ShowsSize(176, 144)) << "once it does take it";
}

TEST_F(Commands, CamerasAreBoundedRemovedRenamedAndGivenAnotherPassword) {
  CCamsim sim({"--camera", "ptz", "door", "alarm"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  setenv("CONTROLLER_PASSWORD", "wrong", 1);
  Start("--user admin --discover --record --discover-most 2");
  ASSERT_TRUE(AllBecome(2, [](const Json& camera) { return camera["state"] == "running without profiles"; }));
  EXPECT_TRUE(Eventually(60, [&] {
    return Ask("status").output.find("1 found cameras are not") != std::string::npos;
  })) << Ask("status").output;

  setenv("CONTROLLER_PASSWORD", "secret", 1);
  const std::string first = Status().begin()->first, last = Status().rbegin()->first;
  EXPECT_TRUE(Does("password \"" + first + "\""));
  EXPECT_TRUE(Eventually(60, [&] { return Camera(first)["state"] == "running"; })) << Camera(first);
  EXPECT_TRUE(Eventually(60, [&] { return Camera(first).value("h264_frames", 0) > 20; })) << Camera(first);
  const Json recordings = Camera(first)["recordings"];
  ASSERT_FALSE(recordings.empty());

  EXPECT_TRUE(Does("rename \"" + first + "\" Yard"));
  EXPECT_EQ(Camera("Yard")["state"], "running");
  EXPECT_FALSE(Does("rename Yard \"" + last + "\"")) << "taken";
  EXPECT_TRUE(Does("remove Yard"));
  EXPECT_EQ(Status().size(), 1u);
  EXPECT_FALSE(Does("remove Yard"));
  for (const Json& path : recordings) EXPECT_TRUE(std::filesystem::exists(path.get<std::string>())) << path;
  EXPECT_TRUE(Eventually(10, [&] { return Text(m_Folder + "/site.json").find("Yard") == std::string::npos; }));
  EXPECT_EQ(End().size(), 1u);
}

TEST_F(Commands, DemonstrationIsSeenByTheCamerasAndInTheSummary) {
  CCamsim sim({"--camera", "ptz", "door", "alarm"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  Begin();
  const CCommandResult shown =
      RunCommand(std::string(TEST_BIN_DIR) + "/demonstrate 127.0.0.10:8900 " + m_Folder + " 2>&1", 200);
  EXPECT_EQ(shown.status, 0) << shown.output;

  const auto told = [this](const char* since) {
    std::vector<std::pair<std::string, int>> events;
    const Json answer = Good(std::string("events") + since);
    for (const Json& event : answer["events"]) events.emplace_back(event["camera"], event["event"]);
    return events;
  };
  EXPECT_THAT(told(""), UnorderedElementsAre(Pair(DOOR, 2275), Pair(ALARM, 2275)));
  EXPECT_EQ(told(" --since 1").size(), 1u);
  // Somebody who waits for the next one has it when it comes.
  const std::string file = m_Folder + "/events.txt";
  CControllerProcess waits("events --since 2 --follow --data " + m_Folder, file);
  ASSERT_FALSE(sim.Post("/cameras/2/motion", {{"on", true}}).is_null());
  EXPECT_TRUE(Eventually(20, [&] { return Text(file).find("motion") != std::string::npos; }));
  EXPECT_THAT(Text(file), HasSubstr(DOOR));
  int status = -1;
  EXPECT_LT(waits.End(SIGINT, &status), 5);
  EXPECT_EQ(status, 0);

  const Cameras summary = End();
  ASSERT_EQ(summary.size(), 3u);
  const struct {
    const char* Name;
    size_t Commands;
    int Events, Motion;
  } expected[] = {{PTZ, 5, 0, -1}, {DOOR, 6, 2, 100}, {ALARM, 1, 1, 100}};
  for (const auto& e : expected) {
    const Json& camera = summary.at(e.Name);
    EXPECT_EQ(camera["commands"].size(), e.Commands) << camera["commands"];
    for (const Json& command : camera["commands"]) EXPECT_EQ(command["seen"], true) << command;
    EXPECT_EQ(camera["events"], e.Events);
    EXPECT_EQ(camera["motion"], e.Motion);
  }
}

}  // namespace
