// The simulated cameras as an ONVIF client that is not ours sees them.
#include "tests/support/camsim_process.h"
#include "tests/support/eventually.h"
#include "tests/support/places.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using Json = nlohmann::json;

const std::string CLIENT_DIR = std::string(TEST_DATA_DIR) + "/../camsim_client";

// One run of the judge. Null and a failure when it does not end well.
Json Judge(const std::string& arguments) {
  const CCommandResult run = RunCommand("cd " + CLIENT_DIR + " && node judge.js " + arguments + " 2>&1");
  const Json json = Json::parse(run.output, nullptr, false);
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_FALSE(json.is_discarded()) << run.output;
  return json.is_discarded() ? Json() : json;
}

class CamsimOnvif : public testing::Test {
 protected:
  void SetUp() override {
    struct stat info {};
    ASSERT_EQ(stat((CLIENT_DIR + "/node_modules/onvif").c_str(), &info), 0)
        << "the independent client is not installed: npm ci --prefix tests/camsim_client";
    ASSERT_TRUE(m_camsim.Ready()) << m_camsim.Output();
  }
  CCamsim m_camsim;
};

TEST_F(CamsimOnvif, IsDiscovered) {
  Json found;
  // The client listens for a second, which a busy machine may let go by.
  const auto finds = [&](size_t count) {
    return Eventually(60, [&] { return (found = Judge("discover")).size() == count; });
  };
  ASSERT_TRUE(finds(3)) << found;
  for (const char* host : {"127.0.0.11", "127.0.0.12", "127.0.0.13"})
    EXPECT_NE(found.dump().find(std::string("\"host\":\"") + host +
                                "\",\"path\":\"/onvif/device_service\",\"port\":8080"),
              std::string::npos)
        << found;
  ASSERT_TRUE(m_camsim.Quirks(2, {{"discovery_silent", true}}));
  ASSERT_FALSE(m_camsim.Post("/cameras/3/power", {{"on", false}}).is_null());
  EXPECT_TRUE(finds(1)) << found;
}

TEST_F(CamsimOnvif, ShowsWhatItOffers) {
  const struct {
    const char *address, *manufacturer, *model, *serial;
    size_t presets;
    Json profiles;  // encoding, width, height, audio, stream path
  } cameras[] = {{"127.0.0.11",
                  "Acme",
                  "SpeedDome 20",
                  "ACM-20-000001",
                  3,
                  {{"H264", 1280, 720, "G711", "/Profile_1"},
                   {"JPEG", 640, 480, "G711", "/Profile_2"},
                   {"JPEG", 320, 240, "", "/Profile_3"}}},
                 {"127.0.0.12",
                  "VIVOTEK",
                  "IP8133W",
                  "0002D1000002",
                  0,
                  {{"JPEG", 640, 480, "G711", "/live.sdp"},
                   {"H264", 640, 480, "G711", "/live2.sdp"},
                   {"JPEG", 176, 144, "", "/live3.sdp"}}},
                 {"127.0.0.13",
                  "Orvell",
                  "OV-4 Bullet",
                  "ORV000000003",
                  0,
                  {{"H264", 640, 360, "G711", "/av?ch=1&sub=0"},
                   {"JPEG", 640, 480, "", "/av?ch=1&sub=1"},
                   {"JPEG", 320, 240, "", "/av?ch=1&sub=2"}}}};
  for (const auto& camera : cameras) {
    const std::string address = camera.address;
    const Json seen = Judge("look " + address + ":8080");
    ASSERT_TRUE(seen.is_object());
    const Json& about = seen["information"];
    EXPECT_EQ(Json({about["manufacturer"], about["model"], about["serialNumber"], seen["presets"].size()}),
              Json({camera.manufacturer, camera.model, camera.serial, camera.presets}));
    Json profiles;
    for (const Json& p : seen["profiles"]) {
      std::string stream = p["stream"];
      ASSERT_TRUE(stream.starts_with("rtsp://" + address + ":8554")) << stream;
      profiles.push_back(
          {p["encoding"], p["size"][0], p["size"][1], p["audio"], stream.substr(12 + address.size())});
      EXPECT_EQ(p["snapshot"].get<std::string>().find("http://" + address + ":8080/"), 0u);
    }
    EXPECT_EQ(profiles, camera.profiles);
  }
}

TEST_F(CamsimOnvif, ChecksWhoAsks) {
  EXPECT_NE(RunCommand("cd " + CLIENT_DIR + " && node judge.js look 127.0.0.12:8080 wrong 2>&1").status, 0);
  EXPECT_GT(m_camsim.Camera(2)["auth_failures"], 0);
  EXPECT_EQ(m_camsim.Camera(2)["requests"].count("GetStreamUri"), 0u);
  // A login is judged by the camera's own clock, so one who has read that clock gets in.
  ASSERT_TRUE(m_camsim.Quirks(1, {{"clock_offset", -5 * 3600}}));
  EXPECT_TRUE(Judge("look 127.0.0.11:8080").is_object());
  EXPECT_EQ(m_camsim.Camera(1)["auth_failures"], 0);
}

}  // namespace
