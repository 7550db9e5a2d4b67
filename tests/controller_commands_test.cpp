// The commands as people use them: a controller in the background with the real driver, simulated cameras, and
// the controller's commands from outside. Judged by what the cameras say and by what stands in their pictures.
#include "sim/frame_code.h"
#include "tests/support/camsim_process.h"
#include "tests/support/controller_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <signal.h>
#include <stdlib.h>

#include <chrono>
#include <cmath>
#include <csetjmp>
#include <filesystem>
#include <thread>

namespace {

using Json = nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

struct CPicture {
  int Width = 0, Height = 0;
  std::vector<uint8_t> Luma;
};

// An empty picture when it cannot be decoded.
CPicture Decode(const std::string& bytes) {
  struct CErrors : jpeg_error_mgr {
    jmp_buf Out;
  } errors;
  jpeg_decompress_struct decoder{};
  decoder.err = jpeg_std_error(&errors);
  errors.error_exit = [](j_common_ptr c) { longjmp(static_cast<CErrors*>(c->err)->Out, 1); };
  errors.output_message = [](j_common_ptr) {};
  jpeg_create_decompress(&decoder);
  CPicture picture;
  if (setjmp(errors.Out) == 0) {
    jpeg_mem_src(&decoder, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    jpeg_read_header(&decoder, TRUE);
    decoder.out_color_space = JCS_GRAYSCALE;
    jpeg_start_decompress(&decoder);
    picture.Width = static_cast<int>(decoder.output_width);
    picture.Height = static_cast<int>(decoder.output_height);
    picture.Luma.resize(static_cast<size_t>(picture.Width) * static_cast<size_t>(picture.Height));
    while (decoder.output_scanline < decoder.output_height) {
      JSAMPROW row = picture.Luma.data() + decoder.output_scanline * decoder.output_width;
      jpeg_read_scanlines(&decoder, &row, 1);
    }
  } else {
    picture = {};
  }
  jpeg_destroy_decompress(&decoder);
  return picture;
}

class Commands : public testing::Test {
 protected:
  Commands() {
    char folder[] = "/tmp/controller-test-XXXXXX";
    m_Folder = mkdtemp(folder);
    setenv("CONTROLLER_PASSWORD", "secret", 1);
  }
  ~Commands() override { std::filesystem::remove_all(m_Folder); }

  std::vector<std::string> RunArguments() const {
    return {"run",
            "--interface",
            "lo",
            "--data",
            m_Folder,
            "--user",
            "admin",
            "--discover",
            "--record",
            "--summary",
            m_Folder + "/summary.json"};
  }

  CCommandResult Ask(const std::string& command) const {
    return RunCommand(kController + " " + command + " --data " + m_Folder + " 2>&1");
  }

  // The answer, which must be a good one.
  Json Good(const std::string& command) const {
    const CCommandResult result = Ask(command + " --json");
    EXPECT_EQ(result.status, 0) << command << ": " << result.output;
    return Json::parse(result.output, nullptr, false);
  }

  Json Camera(int id) const {
    const CCommandResult result = Ask("status --json");
    const Json status = Json::parse(result.output, nullptr, false);
    if (result.status == 0)
      for (const Json& camera : status["cameras"])
        if (camera["id"] == id) return camera;
    return Json::object();
  }

  bool HavePictures(int cameras) const {
    return Eventually(30, [&] {
      for (int id = 1; id <= cameras; ++id)
        if (Camera(id).value("jpeg_frames", 0) == 0) return false;
      return true;
    });
  }

  CPicture Latest(int id) const {
    const Json camera = Camera(id);
    return camera.contains("pictures") ? Decode(Text(camera["pictures"][0])) : CPicture();
  }

  // Whether the camera's pictures come to show a position that `there` likes.
  bool Shows(int id, const std::function<bool(const CFrameCode&)>& there) const {
    return Eventually(15, [&] {
      const CPicture p = Latest(id);
      CFrameCode code;
      return !p.Luma.empty() && ReadFrameCode(p.Luma.data(), p.Width, p.Width, p.Height, &code) && there(code);
    });
  }
  bool ShowsPosition(int id, double pan, double tilt, double zoom) const {
    return Shows(id, [=](const CFrameCode& code) {
      return std::abs(code.pan - pan) < 0.02 && std::abs(code.tilt - tilt) < 0.02 &&
             std::abs(code.zoom - zoom) < 0.02;
    });
  }
  bool ShowsSize(int id, int width, int height) const {
    return Eventually(20, [&] {
      const CPicture picture = Latest(id);
      return picture.Width == width && picture.Height == height;
    });
  }

  std::string m_Folder;
};

TEST_F(Commands, MoveCamerasAsTheirPicturesShow) {
  CCamsim sim({"--camera", "ptz", "door", "--quirk", "1:ptz_space=fov"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  CControllerProcess controller(RunArguments());
  ASSERT_TRUE(HavePictures(2));

  // Relative: parts of half a picture; the picture at zoom 0 is half a circle's quarter wide.
  Good("move 127.0.0.11 --pan 40");
  EXPECT_TRUE(ShowsPosition(1, 0.1, 0, 0)) << "to the right";
  Good("move 1 --tilt 50");
  EXPECT_TRUE(ShowsPosition(1, 0.1, -0.3, 0)) << "and down";
  Good("zoom 1 in");
  EXPECT_TRUE(ShowsPosition(1, 0.1, -0.3, 0.125));
  Good("zoom 1 out");
  EXPECT_TRUE(ShowsPosition(1, 0.1, -0.3, 0));

  const Json presets = Good("presets \"Acme SpeedDome 20\"")["presets"];
  ASSERT_EQ(presets.size(), 3u);
  EXPECT_EQ(presets[1], (Json{{"number", 2}, {"name", "Car park"}}));
  Good("store-preset 1 Overview");
  EXPECT_TRUE(Eventually(10, [&] { return sim.Camera(1)["presets"][2]["at"]["tilt"] < -0.25; }));
  Good("goto-preset 1 \"Car park\"");
  EXPECT_TRUE(ShowsPosition(1, 0.5, -0.2, 0.3));
  Good("goto-preset 1 3");
  EXPECT_TRUE(ShowsPosition(1, 0.1, -0.3, 0));

  // Continuous, after the camera says so when it is loaded anew.
  ASSERT_TRUE(sim.Quirks(1, {{"ptz_space", "continuous"}}));
  ASSERT_FALSE(sim.Post("/cameras/1/power", {{"on", false}}).is_null());
  ASSERT_FALSE(sim.Post("/cameras/1/power", {{"on", true}}).is_null());
  EXPECT_TRUE(Eventually(30, [&] {
    Ask("move 1 --pan -30");
    return sim.Camera(1)["ptz"]["moving"] == true;
  }));
  EXPECT_TRUE(Shows(1, [](const CFrameCode& code) { return code.pan < -0.1; })) << "it goes on to the left";
  Good("stop 1");
  EXPECT_TRUE(Eventually(10, [&] { return sim.Camera(1)["ptz"]["moving"] == false; }));

  for (const auto& [command, complaint] : std::vector<std::pair<const char*, const char*>>{
           {"move 2 --pan 10", "cannot pan or tilt"},
           {"move 1", "neither pan nor tilt"},
           {"move 1 --pan 101", "-100 to 100"},
           {"zoom 1 sideways", "in or out"},
           {"goto-preset 1 Nowhere", "no preset 'Nowhere'"},
           {"move 127.0.0.99 --pan 1", "there are Acme SpeedDome 20, VIVOTEK IP8133W"}}) {
    const CCommandResult result = Ask(command);
    EXPECT_EQ(result.status, 1) << command;
    EXPECT_THAT(result.output, HasSubstr(complaint)) << command;
  }
  controller.End(SIGTERM);
  const CCommandResult nobody = Ask("status");
  EXPECT_EQ(nobody.status, 1);
  EXPECT_THAT(nobody.output, HasSubstr("no controller runs there"));
}

TEST_F(Commands, ChangedStreamsAreRunKeptAndNotForced) {
  const std::vector<std::string> camera = {"--camera", "ptz"};
  {
    CCamsim sim(camera);
    ASSERT_TRUE(sim.Ready()) << sim.Output();
    CControllerProcess controller(RunArguments());
    ASSERT_TRUE(HavePictures(1));
    const Json answer = Good("set-stream 1 jpeg 1 --size 320x240");
    EXPECT_EQ(answer["stream"]["encoder"], "VE_2") << "the one that runs the profile";
    EXPECT_TRUE(answer["differences"].empty()) << answer;
    EXPECT_TRUE(ShowsSize(1, 320, 240));

    ASSERT_TRUE(sim.Quirks(1, {{"encoder_set", "round"}}));
    const Json rounded = Good("set-stream 1 h264 1 --bitrate 1500");
    const Json kept = sim.Camera(1)["encoders"][0]["bitrate_kbit"];
    EXPECT_EQ(rounded["differences"]["bitrate"], (Json{{"wanted", 1500}, {"camera", kept}})) << rounded;
    EXPECT_EQ(Good("streams 1")["streams"][0]["settings"]["bitrate"], kept);

    // A further JPEG stream moves the recorded one along in the list; the recording goes on.
    Good("set-stream 1 jpeg 2 --profile Profile_3");
    const int64_t recorded = Camera(1)["h264_frames"];
    EXPECT_TRUE(Eventually(20, [&] {
      const Json now = Camera(1);
      return now["streams"].size() == 3 && now["h264_frames"] > recorded + 20;
    })) << Camera(1);
    for (const auto& [change, complaint] : std::vector<std::pair<const char*, const char*>>{
             {"jpeg 1 --size 333x222", "it offers 1280x720"},
             {"jpeg 1 --size wide", "640x480"},
             {"jpeg 1 --bitrate 1", "takes 256 to 10000"},
             {"jpeg 4 --fps 5", "no stream jpeg 4"},
             {"jpeg 2 --encoder VE_2 --size 176x144", "wants something else"},
             {"jpeg 1 --profile Nothing", "no profile 'Nothing'"},
             {"movie 1 --fps 5", "jpeg or h264"}}) {
      const CCommandResult result = Ask(std::string("set-stream 1 ") + change);
      EXPECT_EQ(result.status, 1) << change;
      EXPECT_THAT(result.output, HasSubstr(complaint)) << change;
    }
    controller.End(SIGTERM);
  }
  // A camera that has forgotten everything, and a controller with nothing but the site file.
  CCamsim sim(camera);
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  CControllerProcess controller(RunArguments());
  ASSERT_TRUE(HavePictures(1));
  EXPECT_TRUE(ShowsSize(1, 320, 240));

  ASSERT_TRUE(sim.Quirks(1, {{"encoder_set", "refuse"}}));
  const auto asked = [&sim] { return sim.Camera(1)["requests"].value("SetVideoEncoderConfiguration", 0); };
  const int before = asked();
  const auto start = std::chrono::steady_clock::now();
  const CCommandResult refused = Ask("set-stream 1 jpeg 1 --size 176x144");
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.output,
              AllOf(HasSubstr("does not take jpeg 1"), HasSubstr("the camera has \"320x240\"")));
  EXPECT_TRUE(Eventually(30, [&] { return asked() >= before + 3; })) << "it goes on being asked";
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  EXPECT_LE(asked() - before, 1 + took.count() / 5);
  EXPECT_TRUE(ShowsSize(1, 320, 240)) << "pictures come all the same";
  ASSERT_TRUE(sim.Quirks(1, {{"encoder_set", "exact"}}));
  EXPECT_TRUE(ShowsSize(1, 176, 144)) << "once it does take it";
}

TEST_F(Commands, DemonstrationIsSeenByTheCamerasAndInTheSummary) {
  CCamsim sim({"--camera", "ptz", "door", "alarm"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  CControllerProcess controller(RunArguments());
  const CCommandResult shown =
      RunCommand(kController + " demonstrate 127.0.0.10:8900 --data " + m_Folder + " 2>&1", 90);
  EXPECT_EQ(shown.status, 0) << shown.output;

  const Json events = Good("events")["events"];
  ASSERT_EQ(events.size(), 2u) << events;
  EXPECT_EQ(events[0]["id"], 2);
  EXPECT_EQ(events[1]["id"], 3);
  EXPECT_EQ(events[1]["event"], 2275);
  EXPECT_EQ(Good("events --since 1")["events"].size(), 1u);
  // Somebody who waits for the next one has it when it comes.
  CCommandResult next;
  std::thread waits([&] {
    next = RunCommand("timeout -s INT 5 " + kController + " events --since 2 --follow --data " + m_Folder);
  });
  ASSERT_FALSE(sim.Post("/cameras/2/motion", {{"on", true}}).is_null());
  waits.join();
  EXPECT_THAT(next.output, AllOf(HasSubstr("VIVOTEK IP8133W"), HasSubstr("motion")))
      << "status " << next.status;

  int status = -1;
  controller.End(SIGTERM, &status);
  EXPECT_EQ(status, 0);
  const Json summary = Json::parse(Text(m_Folder + "/summary.json"))["cameras"];
  ASSERT_EQ(summary.size(), 3u);
  const size_t commands[] = {5, 6, 1};
  const int counts[] = {0, 2, 1};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(summary[i]["commands"].size(), commands[i]) << summary[i]["commands"];
    for (const Json& command : summary[i]["commands"]) EXPECT_EQ(command["seen"], true) << command;
    EXPECT_EQ(summary[i]["events"], counts[i]);
    EXPECT_EQ(summary[i]["motion"], counts[i] > 0 ? 100 : -1);
  }
}

}  // namespace
