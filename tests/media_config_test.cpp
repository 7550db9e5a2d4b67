// User stream settings: the lists, their stored forms, and which entry is in force.
#include "host/base/gxassert.h"
#include "media/onvif_config.h"
#include "tests/media_support.h"

#include <thread>

namespace {

// A camera with profiles P0, P1, ... on encoders E0, E1, ... of those encodings and widths.
struct CModel {
  CProfileConfig Profiles;
  CEncoderConfig Encoders;

  CModel(std::initializer_list<std::pair<const char*, int>> streams) {
    int i = 0;
    for (const auto& [encoding, width] : streams) {
      const std::string n = std::to_string(i++);
      const std::string settings = std::string("<Encoding>") + encoding + "</Encoding><Resolution><Width>" +
                                   std::to_string(width) + "</Width><Height>480</Height></Resolution>";
      Encoders.AddEncoder(ParseXML("<c token=\"E" + n + "\">" + settings + "</c>").get());
      Profiles.AddProfile(ParseXML("<p token=\"P" + n +
                                   "\"><Name>n</Name><VideoEncoderConfiguration token=\"E" + n + "\">" +
                                   settings + "</VideoEncoderConfiguration></p>")
                              .get());
    }
  }
};

// An entry in message form.
std::string Entry(const std::string& profile, const std::string& encoder, const std::string& encoding,
                  int width) {
  return "n|" + profile + "|" + encoder + "|1|" + encoding + "|0|0|0|0|0|" + std::to_string(width) + "|480|4";
}

const char LIST[] = "P9|2|Day|P1|E1|0|H264|1|2|3|4|5|6|7|2|Night|P2|<DEFAULT>|1|JPEG|8|9|10|11|12|13|14|4";

TEST(MediaConfig, MessageForm) {
  CGXMSG msg(Items(LIST));
  CONVIFUserConfig list;
  list.AddNewSettings();
  list.ReadFrom(&msg);
  EXPECT_TRUE(msg.Items().AtEnd());
  EXPECT_EQ(DumpMessage(list), LIST);
  EXPECT_EQ(list.NSettings(), 2);
  EXPECT_EQ(list.DefaultProfile(), "P9");
  EXPECT_EQ(list.Settings(0)->Transport(), RTP_TRANSPORT_UDP);
  EXPECT_FALSE(list.Settings(0)->ReadOnlyProfile());
  EXPECT_TRUE(list.Settings(1)->ReadOnlyProfile());
  EXPECT_EQ(list.Settings(2), nullptr);
  EXPECT_EQ(list.Settings(-1), nullptr);

  ReadMessage(&list, "a lie|2000000000|Day|P1|E1|0|H264|1|2|3|4|5|6|7|2");
  EXPECT_EQ(list.NSettings(), 1);
}

TEST(MediaConfig, EntriesComeAndGo) {
  CONVIFUserConfig h264, jpeg;
  CONVIFUserSettings* const a = h264.AddNewSettings();
  CONVIFUserSettings* const b = h264.AddNewSettings();
  CONVIFUserSettings* const c = jpeg.AddNewSettings();
  for (void* known : {a, b, c}) EXPECT_EQ(FindUserSettings(h264, jpeg, known), known);
  EXPECT_EQ(FindUserSettings(h264, jpeg, &h264), nullptr);
  EXPECT_EQ(FindUserSettings(h264, jpeg, nullptr), nullptr);
  const int asserts = AssertCount();
  h264.DeleteSettings(c);  // of the other list
  EXPECT_EQ(AssertCount(), asserts + 1);
  h264.DeleteSettings(b);  // the tail, then append behind the new one
  CONVIFUserSettings* const d = h264.AddNewSettings();
  EXPECT_EQ(a->Next(), d);
  EXPECT_EQ(DumpMessage(*d), "|||1||0|0|0|0|0|0|0|4");
  h264.DeleteSettings(a);
  EXPECT_EQ(h264.Settings(), d);
  h264.DeleteSettings(d);
  CONVIFUserSettings* const e = h264.AddNewSettings();
  EXPECT_EQ(h264.Settings(), e);
  for (int i = 0; i < 100000; ++i) jpeg.AddNewSettings();  // destruction must not recurse
}

TEST(MediaConfig, WhatTheCameraRuns) {
  const CModel camera{{"H264", 1280}, {"JPEG", 640}};
  const struct {
    const char* name;
    const char *profile, *encoder, *encoding;
    int width;
    bool active;
  } cases[] = {
      {"same settings", "P0", "E0", "H264", 1280, true},
      {"other settings", "P0", "E0", "H264", 640, false},
      {"follows the camera", "P1", "<DEFAULT>", "", 0, true},
      {"the marker is exact", "P1", "<default>", "JPEG", 640, false},
      {"profile gone", "P7", "<DEFAULT>", "", 0, false},
      {"encoder gone", "P0", "E7", "H264", 1280, false},
      {"profile on another encoder", "P0", "E1", "JPEG", 640, false},
  };
  for (const auto& c : cases) {
    CONVIFUserSettings entry;
    ReadMessage(&entry, Entry(c.profile, c.encoder, c.encoding, c.width));
    EXPECT_EQ(IsSettingsActive(entry, camera.Profiles, camera.Encoders), c.active) << c.name;
  }
}

TEST(MediaConfig, EntryToStreamWith) {
  const CModel camera{{"H264", 1280}, {"JPEG", 640}};
  const auto list = [](const char* defaultProfile, std::initializer_list<const char*> profiles) {
    std::string text = std::string(defaultProfile) + "|" + std::to_string(profiles.size());
    for (const char* profile : profiles) text += "|" + Entry(profile, "<DEFAULT>", "", 0);
    return text;
  };
  const struct {
    const char* name;
    std::string list;
    int index, chosen;
  } cases[] = {
      {"index of an active entry", list("", {"P0", "P1"}), 1, 1},
      {"index of an inactive entry", list("", {"gone", "P1"}), 0, 1},
      {"index past the end", list("", {"gone", "P1"}), 2, 1},
      {"default profile", list("P1", {"P0", "P1"}), -1, 1},
      {"default profile inactive", list("gone", {"gone", "P1", "P0"}), -1, 1},
      {"default profile not listed", list("P0", {"gone", "P1"}), -5, 1},
      {"none active", list("gone", {"gone"}), -1, -1},
      {"empty", list("", {}), 0, -1},
  };
  for (const auto& c : cases) {
    CONVIFUserConfig entries;
    ReadMessage(&entries, c.list);
    EXPECT_EQ(GetRTSPResolution(entries, c.index, camera.Profiles, camera.Encoders), c.chosen) << c.name;
  }
}

TEST(MediaConfig, DefaultsComeFromTheNearestProfile) {
  const auto only = [](const char* profile, const char* encoding, int width) {
    return "|1|" + Entry(profile, "<DEFAULT>", encoding, width);
  };
  const struct {
    CModel camera;
    std::string h264, jpeg;
  } cases[] = {
      {{{"H264", 1280}, {"H264", 704}, {"JPEG", 320}}, only("P1", "H264", 704), only("P2", "JPEG", 320)},
      {{{"JPEG", 1280}, {"JPEG", 640}}, only("P1", "JPEG", 640), only("P1", "JPEG", 640)},
      {{{"H264", 1280}}, only("P0", "H264", 1280), "|0"},
      {{{"MPEG4", 640}}, "|0", "|0"},
  };
  for (const auto& c : cases) {
    CONVIFUserConfig h264, jpeg;
    for (int twice = 0; twice < 2; ++twice) {  // lists with entries stay as they are
      EXPECT_TRUE(LoadDefaultUserSettings(c.camera.Profiles, &h264, &jpeg));
      EXPECT_EQ(DumpMessage(h264), c.h264);
      EXPECT_EQ(DumpMessage(jpeg), c.jpeg);
    }
  }
}

TEST(MediaConfig, DefaultsFollowTheCameraWhileOthersRead) {
  const CModel first{{"H264", 640}}, second{{"H264", 1280}};
  CONVIFUserConfig h264, jpeg;
  ReadMessage(&h264, "|1|" + Entry("P0", "E0", "H264", 320));
  CONVIFUserSettings* const fixed = h264.Settings();
  std::atomic<bool> stop = false;
  std::atomic<int> reads = 0;
  std::thread reader([&] {  // the configuration screen, while the connection thread appends and updates
    while (!stop) {
      EXPECT_NE(DumpMessage(h264).find("|320|480|"), std::string::npos);
      for (int i = 0; i < h264.NSettings(); ++i) {
        const CONVIFSettings copy = *h264.Settings(i)->Settings();
        EXPECT_NE(copy.Resolution().Height, 0);
      }
      ++reads;
    }
  });
  for (int i = 0; i < 500 || reads < 50 || i % 2 == 1; ++i) {
    if (i < 500 && i % 50 == 0) {
      auto entry = std::make_unique<CONVIFUserSettings>();
      entry->Settings()->CopyDataFrom(fixed->Settings());
      entry->ProfileToken("P0");
      entry->EncoderToken(USER_SETTINGS_DEFAULT_ENCODER);
      h264.AddSettings(std::move(entry));
    }
    UpdateDefaults(&h264, *(i % 2 != 0 ? first : second).Profiles.Profiles());
    std::this_thread::yield();
  }
  stop = true;
  reader.join();
  EXPECT_EQ(h264.Settings(1)->Settings()->Resolution().Width, 640);
  EXPECT_EQ(fixed->Settings()->Resolution().Width, 320);
}

}  // namespace
