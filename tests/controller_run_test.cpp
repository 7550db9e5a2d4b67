// The controller as people start it: the real program with the real driver against simulated cameras, judged by
// its output, its files, libjpeg and ffmpeg.
#include "sim/frame_code.h"
#include "tests/support/camsim_process.h"
#include "tests/support/controller_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

using Json = nlohmann::json;
using Clock = std::chrono::steady_clock;
using CBackground = CControllerProcess;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

// Warnings of libjpeg about a picture; -1 when it cannot be decoded.
long JPEGWarnings(const std::string& bytes) {
  struct CErrors : jpeg_error_mgr {
    bool Failed = false;
  } errors;
  jpeg_decompress_struct decoder{};
  decoder.err = jpeg_std_error(&errors);
  errors.error_exit = [](j_common_ptr c) { throw static_cast<CErrors*>(c->err); };
  errors.output_message = [](j_common_ptr) {};
  jpeg_create_decompress(&decoder);
  try {
    jpeg_mem_src(&decoder, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    jpeg_read_header(&decoder, TRUE);
    jpeg_start_decompress(&decoder);
    std::vector<JSAMPLE> line(decoder.output_width * 3u);
    JSAMPROW row = line.data();
    while (decoder.output_scanline < decoder.output_height) jpeg_read_scanlines(&decoder, &row, 1);
    jpeg_finish_decompress(&decoder);
  } catch (CErrors*) {
    errors.Failed = true;
  }
  jpeg_destroy_decompress(&decoder);
  return errors.Failed ? -1 : errors.num_warnings;
}

class Controller : public testing::Test {
 protected:
  Controller() {
    char folder[] = "/tmp/controller-test-XXXXXX";
    m_Folder = mkdtemp(folder);
    setenv("CONTROLLER_PASSWORD", "secret", 1);
  }
  ~Controller() override { std::filesystem::remove_all(m_Folder); }

  // Both outputs and the exit status of `controller ARGUMENTS` on the loopback interface.
  CCommandResult Run(const std::string& command, const std::string& arguments, int seconds = 60) const {
    return RunCommand(
        kController + " " + command + " --interface lo --data " + m_Folder + " " + arguments + " 2>&1",
        seconds);
  }

  // A run of that long; the summary's cameras by name.
  std::map<std::string, Json> Cameras(int seconds, const std::string& arguments) const {
    const std::string summary = m_Folder + "/summary.json";
    const CCommandResult run =
        Run("run", "--for " + std::to_string(seconds) + " --summary " + summary + " " + arguments);
    EXPECT_EQ(run.status, 0) << run.output;
    std::map<std::string, Json> cameras;
    for (const Json& camera : Json::parse(Text(summary), nullptr, false).value("cameras", Json::array()))
      cameras[camera["name"]] = camera;
    return cameras;
  }

  // Plays a recording with ffmpeg, which must not complain, and reads the counter that the camera drew into
  // each picture: all are there, in order.
  static void JudgeRecording(const std::string& path, int width, int height, int64_t pictures) {
    const CCommandResult errors =
        RunCommand("ffmpeg -v error -i \"" + path + "\" -enc_time_base -1 -f null - 2>&1");
    EXPECT_EQ(errors.output, "") << path;
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
      EXPECT_TRUE(at == 0 || code.counter == last + 1) << path << ": " << code.counter << " after " << last;
      last = code.counter;
    }
  }

  std::string m_Folder;
};

TEST_F(Controller, FindsInstallsShowsRecordsAndBringsBack) {
  CCamsim sim({"--camera", "ptz", "door", "alarm"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  const CCommandResult found = Run("discover", "--user admin --json");
  ASSERT_EQ(found.status, 0) << found.output;
  const Json list = Json::parse(found.output)["cameras"];
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[0]["type"], 8072);

  auto first = Cameras(14, "--discover --user admin --record --keep-pictures " + m_Folder + "/all");
  ASSERT_EQ(first.size(), 3u);
  int64_t delivered = 0;
  for (auto& [name, camera] : first) {
    EXPECT_EQ(camera["state"], "running") << name;
    EXPECT_THAT(camera["steps"], Contains("Loading Profile Configs..."));
    EXPECT_GT(camera["seconds_to_running"], 0);
    EXPECT_GT(camera["seconds_to_picture"], camera["seconds_to_running"]);
    EXPECT_GT(camera["jpeg_frames"], 20) << name;
    EXPECT_GT(camera["h264_frames"], 30) << name;
    EXPECT_EQ(JPEGWarnings(Text(camera["pictures"][0])), 0) << name;
    delivered += camera["jpeg_frames"].get<int64_t>();
    ASSERT_EQ(camera["recordings"].size(), 1u) << name;
    const Json& video = camera["streams"].back();
    EXPECT_EQ(video["kind"], "H264");
    JudgeRecording(camera["recordings"][0], video["width"], video["height"], camera["h264_frames"]);
  }
  int64_t kept = 0;
  for (const auto& entry : std::filesystem::directory_iterator(m_Folder + "/all")) {
    EXPECT_EQ(JPEGWarnings(Text(entry.path())), 0) << entry.path();
    ++kept;
  }
  EXPECT_EQ(kept, delivered);

  EXPECT_THAT(Run("discover", "--user admin").output, HasSubstr("No cameras found"));

  // Again, with nothing but the site file, over the other transport; a camera at a new address is found again.
  ASSERT_FALSE(sim.Post("/cameras/2/address", {{"address", "127.0.0.42"}}).is_null());
  auto second = Cameras(7, "--udp");
  ASSERT_EQ(second.size(), 3u);
  for (auto& [name, camera] : second) {
    EXPECT_EQ(camera["serial"], first[name]["serial"]);
    EXPECT_EQ(camera["state"], "running") << name;
    EXPECT_GT(camera["jpeg_frames"], 5) << name;
    EXPECT_TRUE(camera["recordings"].empty()) << "nobody has asked for it";
  }
  EXPECT_THAT(second["VIVOTEK IP8133W"]["service_url"], HasSubstr("127.0.0.42"));
  const CCommandResult show = Run("show", "1 --json");
  ASSERT_EQ(show.status, 0) << show.output;
  const Json camera = Json::parse(show.output)["cameras"][0];
  EXPECT_EQ(camera["user_streams"][0]["transport"], "udp");
  EXPECT_EQ(camera["profiles"].size(), 3u);
  ASSERT_EQ(camera["opened_by"].size(), 2u);
  EXPECT_THAT(camera["opened_by"][0]["parameter_sets"], testing::StartsWith("000001"));
}

TEST_F(Controller, OneBadCameraDoesNotStopTheOthers) {
  CCamsim sim({"--camera", "ptz"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  const std::string url = "http://127.0.0.11:8080/onvif/device_service";
  auto good = Cameras(3, "--user admin --camera " + url);
  ASSERT_EQ(good.size(), 1u);
  EXPECT_EQ(good.begin()->second["type"], 8074);
  EXPECT_EQ(good.begin()->second["serial"], "ACM-20-000001");

  auto both = Cameras(4, "--user admin --camera http://127.0.0.77:8080/x");
  ASSERT_EQ(both.size(), 2u);
  EXPECT_EQ(both["127.0.0.11:8080"]["state"], "running");
  EXPECT_GT(both["127.0.0.11:8080"]["jpeg_frames"], 5);
  EXPECT_EQ(both["127.0.0.77:8080"]["state"], "failed");
  EXPECT_THAT(both["127.0.0.77:8080"]["reason"].get<std::string>(),
              AllOf(HasSubstr("Loading Device Info..."), HasSubstr("http://127.0.0.77:8080/x"),
                    HasSubstr("Connection refused")));

  setenv("CONTROLLER_PASSWORD", "wrong", 1);
  auto wrong = Cameras(3, "--user admin --camera " + url);
  EXPECT_EQ(wrong["127.0.0.11:8080"]["state"], "running without profiles");
  EXPECT_EQ(wrong["127.0.0.11:8080"]["reason"], "check user name and password");
}

TEST_F(Controller, CameraIsBackAfterItWasSwitchedOff) {
  CCamsim sim({"--camera", "alarm"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  const std::string summary = m_Folder + "/summary.json",
                    picture = m_Folder + "/pictures/1-Orvell-OV-4-Bullet-0.jpg";
  CBackground controller({"run", "--interface", "lo", "--data", m_Folder, "--user", "admin", "--discover",
                          "--record", "--summary", summary});
  ASSERT_TRUE(Eventually(15, [&] { return std::filesystem::exists(picture); }));
  ASSERT_FALSE(sim.Post("/cameras/1/power", {{"on", false}}).is_null());
  std::filesystem::remove(picture);
  std::this_thread::sleep_for(std::chrono::seconds(2));
  EXPECT_FALSE(std::filesystem::exists(picture)) << "it is off";
  ASSERT_FALSE(sim.Post("/cameras/1/power", {{"on", true}}).is_null());
  const auto back = Clock::now();
  EXPECT_TRUE(Eventually(12, [&] { return std::filesystem::exists(picture); }));
  RecordProperty("seconds_until_back",
                 std::to_string(std::chrono::duration<double>(Clock::now() - back).count()));
  std::this_thread::sleep_for(std::chrono::seconds(2));  // so that the recording goes on
  int status = -1;
  EXPECT_LT(controller.End(SIGTERM, &status), 6);
  EXPECT_EQ(status, 0);
  const Json camera = Json::parse(Text(summary))["cameras"][0];
  for (const Json& path : camera["recordings"])
    EXPECT_EQ(
        RunCommand("ffmpeg -v error -i \"" + path.get<std::string>() + "\" -enc_time_base -1 -f null - 2>&1")
            .output,
        "")
        << path;
}

TEST_F(Controller, EndsAtAnyMoment) {
  CCamsim sim({"--camera", "door"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  for (const int ms : {0, 100, 700, 2500, 4200, 5000}) {
    std::filesystem::remove(m_Folder + "/site.json");
    std::filesystem::remove(m_Folder + "/controller.log");
    CBackground controller({"run", "--interface", "lo", "--data", m_Folder, "--user", "admin", "--discover",
                            "--record", "--camera", "http://127.0.0.12:1/x"});
    ASSERT_TRUE(Eventually(10, [&] { return std::filesystem::exists(m_Folder + "/controller.log"); }));
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
    const CCommandResult run = RunCommand(kController + " " + arguments + " 2>&1");
    EXPECT_EQ(run.status, c.Status) << arguments << "\n" << run.output;
    EXPECT_THAT(run.output, AllOf(HasSubstr("controller: "), HasSubstr(c.Message))) << arguments;
  }
  EXPECT_EQ(Text(m_Folder + "/damaged.json"), "{\n\"version\": 813,\n\"components\": [\n") << "kept as it was";

  unsetenv("CONTROLLER_PASSWORD");
  const CCommandResult asked =
      RunCommand("setsid " + kController + " discover --user admin --data " + m_Folder + " 2>&1");
  EXPECT_EQ(asked.status, 2);
  EXPECT_THAT(asked.output, HasSubstr("CONTROLLER_PASSWORD"));
}

TEST_F(Controller, OneSiteFileHasOneController) {
  CBackground first({"run", "--interface", "lo", "--data", m_Folder});
  ASSERT_TRUE(Eventually(10, [&] { return std::filesystem::exists(m_Folder + "/site.json"); }));
  const CCommandResult second = Run("run", "--for 1");
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.output, HasSubstr("in use by another controller"));
  EXPECT_EQ(Run("components", "").status, 0) << "what only looks is not kept out";
}

}  // namespace
