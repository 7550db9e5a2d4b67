// The panel: its bookkeeping of packets, and whole calls of a simulated door station, with the real controller
// and driver, judged by what the station's speaker and the panel have written and ffmpeg reads.
#include "controller/heard_track.h"
#include "tests/support/camsim_process.h"
#include "tests/support/controller_process.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <numbers>

namespace {

using Json = nlohmann::json;

// ---- Packets ----

struct CPacket {
  unsigned Number, Time, Source = 7;
  std::vector<unsigned char> Begin = {0x80, 0};  // version and flags, payload type
  std::vector<unsigned char> Rest = std::vector<unsigned char>(160, 0xFF);

  std::vector<unsigned char> Bytes() const {
    std::vector<unsigned char> bytes = Begin;
    for (const int shift : {8, 0}) bytes.push_back(static_cast<unsigned char>(Number >> shift));
    for (const unsigned value : {Time, Source})
      for (const int shift : {24, 16, 8, 0}) bytes.push_back(static_cast<unsigned char>(value >> shift));
    bytes.insert(bytes.end(), Rest.begin(), Rest.end());
    return bytes;
  }
};

TEST(HeardTrack, PutsPacketsInPlace) {
  const std::vector<unsigned char> sound(160, 0);
  const auto with = [&](std::vector<unsigned char> head, unsigned char last = 0) {
    head.insert(head.end(), sound.begin(), sound.end());
    head.back() = last;
    return head;
  };
  const struct {
    const char* What;
    CPacket Packet;
    size_t Samples;
    int64_t Packets, Lost, Late;
  } steps[] = {
      {"the first", {65534, 0xFFFFFF60}, 160, 1, 0, 0},
      {"both wrap", {65535, 0}, 160, 2, 0, 0},
      {"two are lost", {2, 480}, 480, 3, 2, 0},
      {"one of them comes late", {1, 320}, 0, 3, 2, 1},
      {"twice", {2, 480}, 0, 3, 2, 2},
      {"a clock that jumps a little", {3, 645}, 160, 4, 2, 2},
      {"a pause of 100 ms", {4, 1605}, 960, 5, 2, 2},
      {"a pause of a day is one second", {5, 691200000}, 8160, 6, 2, 2},
      {"an extension and two contributors",
       {6, 691200160, 7, {0x92, 0}, with({0, 0, 0, 1, 0, 0, 0, 2, 0xBE, 0xDE, 0, 1, 9, 9, 9, 9})},
       160,
       7,
       2,
       2},
      {"padding", {7, 691200320, 7, {0xA0, 0x80}, with({}, 20)}, 140, 8, 2, 2},
      {"another type", {8, 691200480, 7, {0x80, 8}}, 0, 8, 2, 2},
      {"another version", {8, 691200480, 7, {0x40, 0}}, 0, 8, 2, 2},
      {"padding beyond the payload", {8, 691200480, 7, {0xA0, 0}, with({}, 200)}, 0, 8, 2, 2},
      {"an extension beyond the end", {8, 691200480, 7, {0x90, 0}, {0xBE, 0xDE, 0xFF, 0xFF, 1}}, 0, 8, 2, 2},
      {"cut", {8, 691200480, 7, {0x8F, 0}, {1, 2, 3}}, 0, 8, 2, 2},
      {"another source begins anywhere", {100, 5, 8}, 160, 9, 2, 2},
  };
  CHeardTrack track;
  for (const auto& step : steps) {
    const std::vector<unsigned char> bytes = step.Packet.Bytes();
    EXPECT_EQ(step.Samples, track.Take(bytes, 0).size()) << step.What;
    const CHeardCounts& counts = track.Counts();
    EXPECT_EQ(std::tuple(step.Packets, step.Lost, step.Late),
              std::tuple(counts.Packets, counts.Lost, counts.Late))
        << step.What;
  }
  // A camera that has started again, from the same source: after a while it is believed.
  size_t heard = 0;
  for (unsigned i = 0; i < 50; ++i) heard += track.Take(CPacket{i, i * 160, 8}.Bytes(), 400).size();
  EXPECT_EQ(heard, 25u * 160);
  EXPECT_EQ(400, track.Counts().LongestGapMs);
}

// ---- Sound in files ----

std::vector<int16_t> Decode(const std::string& file) {
  const std::string bytes = RunCommand("ffmpeg -v error -i '" + file + "' -f s16le -ac 1 -ar 8000 -").output;
  std::vector<int16_t> samples(bytes.size() / 2);
  std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
  return samples;
}

struct CTone {
  double Seconds = 0;    // from the first to the last window in which it is heard
  double Ratio = -99;    // dB, signal to noise of all of that
  int LongestGapMs = 0;  // without the tone, in between
};

// Windows of 10 ms, each a whole number of periods of any multiple of 100 Hz.
CTone FindTone(const std::vector<int16_t>& samples, double hz) {
  constexpr size_t WINDOW = 80;
  constexpr double AUDIBLE = WINDOW * 300.0 * 300.0;
  CTone found;
  double signal = 0, noise = 1e-9, gapNoise = 0;
  size_t first = 0, last = 0;
  for (size_t at = 0; at + WINDOW <= samples.size(); at += WINDOW) {
    double in = 0, quadrature = 0, all = 0;
    for (size_t i = at; i < at + WINDOW; ++i) {
      const double turn = 2 * std::numbers::pi * hz * static_cast<double>(i) / 8000;
      in += samples[i] * std::cos(turn);
      quadrature += samples[i] * std::sin(turn);
      all += static_cast<double>(samples[i]) * samples[i];
    }
    const double tone = (in * in + quadrature * quadrature) * 2 / WINDOW;
    const bool heard = tone > AUDIBLE && tone > all / 2;
    if (last != 0) gapNoise += all - tone;
    if (!heard) continue;
    if (first == 0) first = at + 1;
    if (last != 0) {
      found.LongestGapMs = std::max(found.LongestGapMs, static_cast<int>((at - last) / 8));
      noise += gapNoise;
    }
    gapNoise = 0;
    last = at + WINDOW;
    signal += tone;
  }
  if (last == 0) return found;
  found.Seconds = static_cast<double>(last - first) / 8000;
  found.Ratio = 10 * std::log10(signal / noise);
  return found;
}

// ---- Calls ----

class Panel : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(m_Cameras.Ready()) << m_Cameras.Output(); }
  ~Panel() override {
    m_pController.reset();
    std::filesystem::remove_all(m_Folder);
  }

  static std::string NewFolder() {
    char folder[] = "/tmp/panel-test-XXXXXX";
    setenv("CONTROLLER_PASSWORD", "secret", 1);
    return mkdtemp(folder);
  }

  void Start(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {"run",
                                    "--interface",
                                    "lo",
                                    "--data",
                                    m_Folder,
                                    "--user",
                                    "admin",
                                    "--camera",
                                    "http://127.0.0.11:8080/onvif/device_service",
                                    "--summary",
                                    m_Folder + "/summary.json"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    m_pController = std::make_unique<CControllerProcess>(all);
  }
  bool Rings() const {
    return Eventually(60, [this] { return Does("ring 127.0.0.11"); });
  }

  Json Ask(const std::string& command) const {
    return Json::parse(
        RunCommand(kController + " " + command + " --data " + m_Folder + " --json 2>/dev/null").output, nullptr,
        false);
  }
  bool Does(const std::string& command) const {
    const Json answer = Ask(command);
    return answer.is_object() && answer.value("ok", false);
  }

  Json Calls() const { return Ask("calls"); }
  Json Door() const {
    const Json calls = Calls();
    return calls.is_object() && !calls["doors"].empty() ? calls["doors"][0] : Json::object();
  }
  bool PanelIs(const std::string& state) const {
    return Eventually(20, [&] {
      const Json calls = Calls();
      return calls.is_object() && calls["panel"]["state"] == state;
    });
  }
  int SpeakerPackets() {
    const Json call = m_Cameras.Camera(1)["door"]["call"];
    return call.is_object() && call.contains("speaker") ? call["speaker"]["packets"].get<int>() : 0;
  }
  bool SpeakerGets(int packets) {
    const int before = SpeakerPackets();
    return Eventually(40, [&] { return SpeakerPackets() >= before + packets; });
  }
  Json EndedCall() {
    Json ended;
    Eventually(20, [&] {
      const Json door = m_Cameras.Camera(1)["door"];
      if (door["call"].is_null() && !door["calls"].empty()) ended = door["calls"].back();
      return !ended.is_null();
    });
    return ended;
  }

  const std::string m_Folder = NewFolder();
  CCamsim m_Cameras{{"--camera", "door", "--sound-folder", m_Folder + "/speakers"}};
  std::unique_ptr<CControllerProcess> m_pController;
};

class PanelTalk : public Panel, public testing::WithParamInterface<const char*> {};

TEST_P(PanelTalk, IsHeardAndHears) {
  std::vector<std::string> arguments = {"--tone", "1000"};
  if (*GetParam() != '\0') arguments.push_back(GetParam());
  ASSERT_FALSE(m_Cameras.Post("/cameras/1/microphone", {{"tone_hz", 600}, {"level", 0.25}}).is_null());
  Start(arguments);
  ASSERT_TRUE(Rings());
  ASSERT_TRUE(Does("accept"));
  ASSERT_TRUE(SpeakerGets(250));
  ASSERT_TRUE(Does("talk"));  // silent: the camera lets its microphone be heard
  const auto before = Door().value("microphone_packets", 0);
  ASSERT_TRUE(Eventually(40, [&] { return Door().value("microphone_packets", 0) > before + 200; }));
  ASSERT_TRUE(Does("hang-up"));
  ASSERT_TRUE(PanelIs("idle"));

  const Json call = EndedCall();
  ASSERT_FALSE(call.is_null());
  EXPECT_EQ("bye", call["state"]);
  EXPECT_EQ(0, call["speaker"]["lost"]) << call;
  const CTone spoken = FindTone(Decode(call["speaker"]["wav"]), 1000);
  EXPECT_GT(spoken.Seconds, 4.5);
  EXPECT_GE(spoken.Ratio, 25) << call;
  EXPECT_LE(spoken.LongestGapMs, 40) << call;

  const Json calls = Calls(), door = calls["doors"][0];
  const std::vector<int16_t> track = Decode(calls["panel"]["sounds"].at(0));
  EXPECT_GT(FindTone(track, 600).LongestGapMs, 3000);  // while the speaker was loud
  const size_t quiet = std::min<size_t>(track.size(), 3 * 8000);
  const CTone heard = FindTone({track.end() - static_cast<std::ptrdiff_t>(quiet), track.end()}, 600);
  EXPECT_GT(heard.Seconds, 2.5);
  EXPECT_GE(heard.Ratio, 25) << door;
  EXPECT_LE(heard.LongestGapMs, 40) << door;
  EXPECT_EQ(0, door["microphone_lost"]) << door;
  EXPECT_GE(door["speaker_packets"], call["speaker"]["packets"]) << door;

  int status = -1;
  m_pController->End(SIGTERM, &status);
  EXPECT_EQ(0, status);
  const Json summary = Json::parse(Text(m_Folder + "/summary.json"), nullptr, false)["cameras"][0];
  const Json counts = {{"placed", 1}, {"accepted", 1}, {"declined", 0}, {"timed_out", 0}, {"cancelled", 0}};
  EXPECT_EQ(counts, summary["calls"]);
  EXPECT_EQ(door["speaker_packets"], summary["speaker_packets"]);
  EXPECT_EQ(door["microphone_packets"], summary["microphone_packets"]);
}

INSTANTIATE_TEST_SUITE_P(Ways, PanelTalk, testing::Values("", "--relay"),
                         [](const auto& way) { return *way.param == '\0' ? "Direct" : "Relayed"; });

// Each call ends in its own way before anybody talks; then one is cut short by the loss of the camera, and one
// by the end of the controller.
TEST_F(Panel, CallsEndInEveryWay) {
  Start({});
  const auto count = [this](const char* outcome) { return Door()["calls"].value(outcome, 0); };
  EXPECT_FALSE(Does("accept"));
  ASSERT_TRUE(Rings());
  EXPECT_FALSE(Does("ring 127.0.0.11"));  // it has a call already
  EXPECT_TRUE(Does("decline"));
  ASSERT_TRUE(Eventually(20, [&] { return count("declined") == 1; }));
  ASSERT_TRUE(Rings());
  EXPECT_TRUE(Does("cancel 127.0.0.11"));
  ASSERT_TRUE(Eventually(20, [&] { return count("cancelled") == 1; }));
  ASSERT_TRUE(Rings());
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(Eventually(40, [&] { return count("timed_out") == 1; }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(14));
  EXPECT_TRUE(PanelIs("idle"));
  EXPECT_FALSE(Does("hang-up"));
  EXPECT_FALSE(Does("talk --file " + m_Folder + "/site.json"));

  ASSERT_TRUE(Rings());
  ASSERT_TRUE(Does("accept"));
  ASSERT_TRUE(SpeakerGets(20));
  ASSERT_FALSE(m_Cameras.Post("/cameras/1/power", {{"on", false}}).is_null());
  const auto sent = Door().value("speaker_packets", 0);
  EXPECT_TRUE(Eventually(20, [&] { return Door().value("speaker_packets", 0) > sent + 50; }));
  EXPECT_TRUE(Does("hang-up"));
  EXPECT_TRUE(PanelIs("idle"));
  ASSERT_FALSE(m_Cameras.Post("/cameras/1/power", {{"on", true}}).is_null());

  ASSERT_TRUE(Rings());
  ASSERT_TRUE(Does("accept"));
  ASSERT_TRUE(SpeakerGets(20));
  int status = -1;
  EXPECT_LT(m_pController->End(SIGTERM, &status), 20);
  EXPECT_EQ(0, status);
  EXPECT_EQ("bye", EndedCall()["state"]);
  const Json summary = Json::parse(Text(m_Folder + "/summary.json"), nullptr, false)["cameras"][0];
  const Json counts = {{"placed", 5}, {"accepted", 2}, {"declined", 1}, {"timed_out", 1}, {"cancelled", 1}};
  EXPECT_EQ(counts, summary["calls"]);
}

}  // namespace
