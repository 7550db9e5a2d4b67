// The panel: its bookkeeping of packets, and whole calls of a simulated door station, with the real controller
// and driver, judged by what the station's speaker and the panel have written and ffmpeg reads.
#include "controller/panel/heard_track.h"
#include "tests/support/camsim_process.h"
#include "tests/support/controller_process.h"
#include "tests/tone.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <vector>

namespace {

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

// ---- Calls ----

class Panel : public CControllerTest {
 protected:
  void SetUp() override { ASSERT_TRUE(m_Cameras.Ready()) << m_Cameras.Output(); }

  void Begin(const std::string& arguments = "") {
    Start("--user admin --camera http://127.0.0.11:8080/onvif/device_service " + arguments);
  }
  bool Rings() {
    return Eventually(90, [this] {
      m_Rung = Clock::now();
      return Does("ring 127.0.0.11");
    });
  }

  // The panel, and the door station as the controller sees it; objects without fields when there is no answer.
  Json State() const {
    const Json calls = Try("calls");
    return calls.is_object() ? calls["panel"] : Json::object();
  }
  Json Door() const {
    const Json calls = Try("calls");
    return calls.is_object() && !calls["doors"].empty() ? calls["doors"][0] : Json::object();
  }
  bool PanelIs(const std::string& state) const {
    return Eventually(20, [&] { return State().value("state", "") == state; });
  }
  bool Counts(const char* outcome) const {
    return Eventually(40, [&] { return Door().value("calls", Json::object()).value(outcome, 0) == 1; });
  }

  // The call as the door station sees it: at present, and the latest that has ended.
  Json Speaker() {
    const Json call = m_Cameras.Camera(1)["door"]["call"];
    return call.is_object() ? call.value("speaker", Json::object()) : Json::object();
  }
  bool SpeakerGets(int packets) {
    return Eventually(60, [&] { return Speaker().value("packets", 0) >= packets; });
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

  CCamsim m_Cameras{{"--camera", "door", "--sound-folder", m_Folder + "/speakers"}};
  Clock::time_point m_Rung;  // at the latest
};

class PanelTalk : public Panel, public testing::WithParamInterface<const char*> {
 protected:
  // The best stretch of the tone, once it is good enough. The sound is made as it is played, so that a machine
  // that stands still for 200 ms makes a hole, which the speaker fills with silence.
  template <class Sound>
  static CTone AwaitTone(double hz, Sound sound) {
    CTone found;
    Eventually(80, [&] {
      found = FindTone(sound(), hz);
      return found.Seconds > LENGTH && found.Ratio >= RATIO;
    });
    return found;
  }
  static constexpr double LENGTH = 3, RATIO = 25;  // s, dB
};

TEST_P(PanelTalk, IsHeardAndHears) {
  ASSERT_FALSE(m_Cameras.Post("/cameras/1/microphone", {{"tone_hz", 600}, {"level", 0.25}}).is_null());
  Begin(std::string("--tone 1000 ") + GetParam());
  ASSERT_TRUE(Rings());
  ASSERT_TRUE(Does("accept"));
  const CTone spoken =
      AwaitTone(1000, [&] { return DecodeSound("-i " + Speaker().value("wav", "/dev/null")); });
  EXPECT_GT(spoken.Seconds, LENGTH);
  EXPECT_GE(spoken.Ratio, RATIO);
  // The microphone is not heard while the speaker is loud.
  const std::string file = State()["sounds"].at(0);
  CSamples track;
  EXPECT_TRUE(Eventually(40, [&] { return FindTone(track = DecodeSound("-i " + file), 600).Absent > 2; }));
  ASSERT_TRUE(Does("talk"));  // silent: the camera lets its microphone be heard
  const auto loud = static_cast<std::ptrdiff_t>(track.size());
  const CTone heard = AwaitTone(600, [&] {
    track = DecodeSound("-i " + file);
    return CSamples(track.begin() + std::min(loud, std::ssize(track)), track.end());
  });
  EXPECT_GT(heard.Seconds, LENGTH);
  EXPECT_GE(heard.Ratio, RATIO);
  ASSERT_TRUE(Does("hang-up"));
  ASSERT_TRUE(PanelIs("idle"));

  const Json call = EndedCall(), door = Door();
  ASSERT_FALSE(call.is_null());
  EXPECT_EQ("bye", call["state"]);
  EXPECT_EQ(0, call["speaker"]["lost"]) << call;
  EXPECT_EQ(0, door["microphone_lost"]) << door;
  EXPECT_GE(door["speaker_packets"], call["speaker"]["packets"]) << door;

  const Json summary = End().begin()->second;
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
  Begin();
  EXPECT_FALSE(Does("accept"));
  ASSERT_TRUE(Rings());
  EXPECT_FALSE(Does("ring 127.0.0.11"));  // it has a call already
  EXPECT_TRUE(Does("decline"));
  ASSERT_TRUE(Counts("declined"));
  ASSERT_TRUE(Rings());
  EXPECT_TRUE(Does("cancel 127.0.0.11"));
  ASSERT_TRUE(Counts("cancelled"));
  ASSERT_TRUE(Rings());
  ASSERT_TRUE(Counts("timed_out"));
  EXPECT_GE(SecondsSince(m_Rung), 14);
  EXPECT_TRUE(PanelIs("idle"));
  EXPECT_FALSE(Does("hang-up"));
  const std::string pipe = m_Folder + "/pipe";
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  for (const std::string& file : {m_Folder + "/site.json", pipe}) EXPECT_FALSE(Does("talk --file " + file));

  ASSERT_TRUE(Rings());
  ASSERT_TRUE(Does("accept"));
  ASSERT_TRUE(SpeakerGets(20));
  const auto lost = Clock::now();
  ASSERT_FALSE(m_Cameras.Post("/cameras/1/power", {{"on", false}}).is_null());
  const auto sent = Door().value("speaker_packets", 0);
  const bool talks = Eventually(20,
                                [&] {
                                  return Door().value("speaker_packets", 0) > sent + 20 ||
                                         State().value("state", "") == "idle";
                                }) &&
                     State().value("state", "") != "idle";
  // 5 s after its loss the camera leaves the intercom, which ends the talk; a slow machine comes too late.
  EXPECT_TRUE(talks || SecondsSince(lost) > 4) << "it is sent to until the call is stopped";
  Does("hang-up");
  EXPECT_TRUE(PanelIs("idle"));
  ASSERT_FALSE(m_Cameras.Post("/cameras/1/power", {{"on", true}}).is_null());

  ASSERT_TRUE(Rings());
  ASSERT_TRUE(Does("accept"));
  ASSERT_TRUE(SpeakerGets(20));
  const Json summary = End().begin()->second;
  EXPECT_EQ("bye", EndedCall()["state"]);
  const Json counts = {{"placed", 5}, {"accepted", 2}, {"declined", 1}, {"timed_out", 1}, {"cancelled", 1}};
  EXPECT_EQ(counts, summary["calls"]);
}

}  // namespace
