// The controller as people start it: the real program with the real driver against simulated cameras, judged by
// its output, its files, libjpeg and ffmpeg.
#include "sim/frame_code.h"
#include "tests/support/camsim_process.h"
#include "tests/support/controller_process.h"
#include "tests/support/jpeg_judge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <thread>

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ContainsRegex;
using testing::HasSubstr;

class Controller : public CControllerTest {
 protected:
  // Whether libjpeg has nothing to say against the picture.
  static bool IsGoodJPEG(const std::string& path) {
    const std::string bytes = Text(path);
    return DecodeJPEG({bytes.begin(), bytes.end()}).Width > 0;
  }

  // Plays a recording with ffmpeg, which must not complain, and reads the counter that the camera drew into
  // each picture: all are there, in order.
  static void JudgeRecording(const std::string& path, int width, int height, int64_t pictures) {
    EXPECT_EQ(Complaints(path), "") << path;
    const CCommandResult play = RunCommand("ffmpeg -v error -i \"" + path +
                                           "\" -vf extractplanes=y -fps_mode passthrough -f rawvideo -");
    const size_t size = static_cast<size_t>(width * height);
    ASSERT_EQ(play.output.size(), size * static_cast<size_t>(pictures)) << path;
    uint32_t last = 0;
    for (size_t at = 0; at < play.output.size(); at += size) {
      CFrameCode code;
      ASSERT_TRUE(
          ReadFrameCode(reinterpret_cast<const uint8_t*>(play.output.data() + at), width, width, height, &code))
          << path << ", picture " << at / size;
      EXPECT_TRUE(at == 0 || code.Counter == last + 1) << path << ": " << code.Counter << " after " << last;
      last = code.Counter;
    }
  }

  // What ffmpeg has to say against a recording.
  static std::string Complaints(const std::string& path) {
    return RunCommand("ffmpeg -v error -i \"" + path + "\" -enc_time_base -1 -f null - 2>&1").output;
  }
};

TEST_F(Controller, FindsInstallsShowsRecordsAndBringsBack) {
  CCamsim sim({"--camera", "ptz", "door", "alarm"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  Json found;
  ASSERT_TRUE(Eventually(60, [&] {
    found = Good("discover --interface lo --user admin")["cameras"];
    return found.size() == 3;
  })) << found;
  EXPECT_EQ(found[0]["type"], 8072);

  Start("--discover --user admin --record --keep-pictures " + m_Folder + "/all");
  EXPECT_TRUE(AllBecome(3, [](const Json& camera) {
    return camera["state"] == "running" && camera["jpeg_frames"] > 20 && camera["h264_frames"] > 30;
  }));
  Cameras first = End();
  ASSERT_EQ(first.size(), 3u);
  int64_t delivered = 0;
  for (auto& [name, camera] : first) {
    EXPECT_EQ(camera["state"], "running") << name;
    EXPECT_THAT(camera["steps"], Contains("Loading Profile Configs..."));
    EXPECT_GT(camera["seconds_to_running"], 0);
    EXPECT_GT(camera["seconds_to_picture"], camera["seconds_to_running"]);
    EXPECT_TRUE(IsGoodJPEG(camera["pictures"][0])) << name;
    delivered += camera["jpeg_frames"].get<int64_t>();
    ASSERT_EQ(camera["recordings"].size(), 1u) << name;
    const Json& video = camera["streams"].back();
    EXPECT_EQ(video["kind"], "H264");
    JudgeRecording(camera["recordings"][0], video["width"], video["height"], camera["h264_frames"]);
  }
  int64_t kept = 0;
  for (const auto& entry : std::filesystem::directory_iterator(m_Folder + "/all")) {
    EXPECT_TRUE(IsGoodJPEG(entry.path())) << entry.path();
    ++kept;
  }
  EXPECT_EQ(kept, delivered);

  EXPECT_THAT(Ask("discover --interface lo --user admin").output, HasSubstr("No cameras found"));

  // Again, with nothing but the site file, over the other transport; a camera at a new address is found again.
  ASSERT_FALSE(sim.Post("/cameras/2/address", {{"address", "127.0.0.42"}}).is_null());
  Start("--udp");
  EXPECT_TRUE(AllBecome(
      3, [](const Json& camera) { return camera["state"] == "running" && camera["jpeg_frames"] > 5; }));
  Cameras second = End();
  ASSERT_EQ(second.size(), 3u);
  for (auto& [name, camera] : second) {
    EXPECT_EQ(camera["serial"], first[name]["serial"]);
    EXPECT_TRUE(camera["recordings"].empty()) << "nobody has asked for it";
  }
  EXPECT_THAT(second["VIVOTEK IP8133W"]["service_url"], HasSubstr("127.0.0.42"));
  const Json camera = Good("show 1 --interface lo --wait 60")["cameras"][0];
  EXPECT_EQ(camera["user_streams"][0]["transport"], "udp");
  EXPECT_EQ(camera["profiles"].size(), 3u);
  ASSERT_EQ(camera["opened_by"].size(), 2u);
  EXPECT_THAT(camera["opened_by"][0]["parameter_sets"], testing::StartsWith("000001"));
}

TEST_F(Controller, OneBadCameraDoesNotStopTheOthers) {
  CCamsim sim({"--camera", "ptz"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  const std::string url = "http://127.0.0.11:8080/onvif/device_service";
  Start("--user admin --camera " + url);
  EXPECT_TRUE(AllBecome(1, [](const Json& camera) { return camera["state"] == "running"; }));
  const Json good = End().begin()->second;
  EXPECT_EQ(good["type"], 8074);
  EXPECT_EQ(good["serial"], "ACM-20-000001");

  // It is still there, and has a neighbour that does not answer.
  Start("--user admin --camera http://127.0.0.77:8080/x");
  EXPECT_TRUE(AllBecome(2, [](const Json& camera) {
    if (camera["name"] == "127.0.0.11:8080") return camera["state"] == "running" && camera["jpeg_frames"] > 5;
    const std::string reason = camera["reason"];
    return camera["state"] == "failed" && reason.find("evice") != std::string::npos &&
           reason.find("http://127.0.0.77:8080/x") != std::string::npos &&
           reason.find("Connection refused") != std::string::npos;
  })) << Json(Status());
  End();

  setenv("CONTROLLER_PASSWORD", "wrong", 1);
  Start("--user admin --camera " + url);
  EXPECT_TRUE(AllBecome(2, [](const Json& camera) {
    return camera["name"] != "127.0.0.11:8080" || (camera["state"] == "running without profiles" &&
                                                   camera["reason"] == "check user name and password");
  })) << Json(Status());
}

TEST_F(Controller, CameraIsBackAfterItWasSwitchedOff) {
  CCamsim sim({"--camera", "alarm"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  const std::string picture = m_Folder + "/pictures/1-Orvell-OV-4-Bullet-0.jpg";
  Start("--user admin --discover --record");
  ASSERT_TRUE(Eventually(60, [&] { return std::filesystem::exists(picture); }));
  // It is back within 12 s; a machine that is busy with other things gets more than one chance.
  double seconds = 1000;
  for (int attempt = 0; attempt < 3 && seconds > 12; ++attempt) {
    ASSERT_FALSE(sim.Post("/cameras/1/power", {{"on", false}}).is_null());
    EXPECT_TRUE(Eventually(20, [&] {  // what was on its way when it went off
      std::filesystem::remove(picture);
      std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // the latest one is written every second
      return !std::filesystem::exists(picture);
    })) << "it is off";
    ASSERT_FALSE(sim.Post("/cameras/1/power", {{"on", true}}).is_null());
    const auto back = Clock::now();
    ASSERT_TRUE(Eventually(60, [&] { return std::filesystem::exists(picture); }));
    seconds = SecondsSince(back);
  }
  EXPECT_LE(seconds, 12);
  RecordProperty("seconds_until_back", std::to_string(seconds));
  const int64_t recorded = Camera("Orvell OV-4 Bullet").value("h264_frames", 0);
  EXPECT_TRUE(AllBecome(1, [&](const Json& camera) { return camera["h264_frames"] > recorded + 20; }));
  const Json camera = End().begin()->second;
  for (const Json& path : camera["recordings"]) EXPECT_EQ(Complaints(path), "") << path;
}

TEST_F(Controller, EndsAtAnyMoment) {
  CCamsim sim({"--camera", "door"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  for (const int ms : {0, 100, 700, 2500, 4200, 5000}) {
    std::filesystem::remove(m_Folder + "/site.json");
    std::filesystem::remove(m_Folder + "/controller.log");
    CControllerProcess controller("run --interface lo --user admin --discover --record --data " + m_Folder +
                                  " --camera http://127.0.0.12:1/x");
    ASSERT_TRUE(Eventually(20, [&] { return std::filesystem::exists(m_Folder + "/controller.log"); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));  // the moment is what is tested
    int status = -1;
    EXPECT_LT(controller.End(SIGTERM, &status), 6) << ms;
    EXPECT_EQ(status, 0) << ms;
  }
}

TEST_F(Controller, BadInputIsNamed) {
  std::ofstream(m_Folder + "/damaged.json") << "{\n\"version\": 813,\n\"components\": [\n";
  const struct {
    const char* Arguments;
    int Status;
    const char* Message;
  } cases[] = {
      {"run --bogus", 2, "--bogus"},
      {"fly", 2, "fly"},
      {"", 2, "subcommand"},
      {"run --camera http://127.0.0.11", 2, "has no path"},
      {"run --for -1", 2, "--for"},
      {"run --udp --tcp", 2, "excludes"},
      {"run --interface nosuch0", 1, "no network interface"},
      {"components --plugin /nowhere/onvifcam.so", 1, "/nowhere/onvifcam.so"},
      {"components --plugin /bin/sh", 1, "plug-in"},
      {"run --for 1 --site FOLDER/damaged.json", 1, "line 4"},
      {"discover --site FOLDER/damaged.json", 1, "line 4"},
      {"run --for 1 --summary /proc/nowhere/x.json", 1, "/proc/nowhere"},
      {"run --for 1 --record /dev/null/x", 1, "/dev/null"},
      {"show nobody", 1, "no camera"},
  };
  for (const auto& c : cases) {
    std::string arguments = c.Arguments;
    if (const size_t at = arguments.find("FOLDER"); at != std::string::npos) arguments.replace(at, 6, m_Folder);
    if (c.Status == 1) arguments += " --data " + m_Folder;
    const CCommandResult run = RunCommand(CONTROLLER + " " + arguments + " 2>&1");
    EXPECT_EQ(run.status, c.Status) << arguments << "\n" << run.output;
    EXPECT_THAT(run.output, AllOf(HasSubstr("controller: "), HasSubstr(c.Message))) << arguments;
  }
  EXPECT_EQ(Text(m_Folder + "/damaged.json"), "{\n\"version\": 813,\n\"components\": [\n") << "kept as it was";

  unsetenv("CONTROLLER_PASSWORD");
  const CCommandResult asked =
      RunCommand("setsid " + CONTROLLER + " discover --user admin --data " + m_Folder + " 2>&1");
  EXPECT_EQ(asked.status, 2);
  EXPECT_THAT(asked.output, HasSubstr("CONTROLLER_PASSWORD"));
}

TEST_F(Controller, OneSiteFileHasOneController) {
  Start("");
  ASSERT_TRUE(Eventually(20, [&] { return std::filesystem::exists(m_Folder + "/site.json"); }));
  const CCommandResult second = Ask("run --for 1");
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.output, ContainsRegex("in use by another controller.*process [0-9]+"));
  EXPECT_EQ(Ask("components").status, 0) << "what only looks is not kept out";
  End();
  EXPECT_EQ(Ask("run --for 1").status, 0) << "it ends by itself";
}

}  // namespace
