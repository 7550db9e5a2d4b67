// User stream settings: the lists, their stored forms, and which entry is in force.
#include "host/gxassert.h"
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
      Profiles.AddProfile(ParseXML("<p token=\"P" + n + "\"><Name>Profile " + n +
                                   "</Name><VideoEncoderConfiguration token=\"E" + n + "\">" + settings +
                                   "</VideoEncoderConfiguration></p>")
                              .get());
    }
  }
};

CONVIFUserSettings* Add(CONVIFUserConfig* list, const char* profile, const char* encoder,
                        const char* encoding = "", int width = 0) {
  CONVIFUserSettings* const entry = list->AddNewSettings();
  entry->Name("n");
  entry->ProfileToken(profile);
  entry->EncoderToken(encoder);
  entry->Settings()->VideoEncoderType(encoding);
  entry->Settings()->Resolution({width, 480});
  return entry;
}

const char LIST[] = "P9|2|Day|P1|E1|0|H264|1|2|3|4|5|6|7|2|Night|P2|<DEFAULT>|1|JPEG|8|9|10|11|12|13|14|4";
const char FILE_LIST[] =
    "P9|2|Day|P1|E1|0|H264|G711|1|2|3|4|5|6|7|2|Night|P2|<DEFAULT>|1|JPEG||8|9|10|11|12|13|14|4";

// Items from their text; numbers are those words that begin with a digit.
CGXItems Items(const std::string& text) {
  CGXItems items;
  for (size_t start = 0; start <= text.size();) {
    const size_t end = std::min(text.find('|', start), text.size());
    const std::string word = text.substr(start, end - start);
    if (!word.empty() && isdigit(word[0]))
      items.Append(std::stoi(word));
    else
      items.Append(word);
    start = end + 1;
  }
  return items;
}

TEST(MediaConfig, MessageForm) {
  CGXMSG msg(Items(LIST));
  CONVIFUserConfig list;
  Add(&list, "old", "old");
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

  CGXMSG lying(Items("P|2000000000|Day|P1|E1|0|H264|1|2|3|4|5|6|7|2"));
  list.ReadFrom(&lying);
  EXPECT_EQ(list.NSettings(), 1);
}

TEST(MediaConfig, FileFormOfEveryVersion) {
  const struct {
    int version;
    const char* stored;
    const char* read;  // as written again
  } cases[] = {
      {531, "1|Day|P1|E1|0|H264|1|2|3|4|5|6|7|2", "kept|1|Day|P1|E1|0|H264||1|2|3|4|5|6|7|2"},
      {532, "P9|1|Day|P1|E1|0|H264|1|2|3|4|5|6|7|2", "P9|1|Day|P1|E1|0|H264||1|2|3|4|5|6|7|2"},
      {812, "P9|1|Day|P1|E1|0|H264|1|2|3|4|5|6|7|2", "P9|1|Day|P1|E1|0|H264||1|2|3|4|5|6|7|2"},
      {813, FILE_LIST, FILE_LIST},
  };
  for (const auto& c : cases) {
    CONVIFUserConfig list;
    CGXMSG before(Items("kept|0"));
    list.ReadFrom(&before);
    CGXFile stored(Items(c.stored), c.version);
    EXPECT_TRUE(list.Read(&stored, stored.Version())) << c.version;
    EXPECT_TRUE(stored.Items().AtEnd()) << c.version;
    CGXFile written;
    EXPECT_TRUE(list.Write(&written, written.Version()));
    EXPECT_EQ(Dump(written.Items()), c.read) << c.version;
  }
}

TEST(MediaConfig, FailuresAtEveryItem) {
  const std::vector<GXT_ITEM> all = Items(FILE_LIST).Items();
  CGXMSG msg(Items(LIST));
  CONVIFUserConfig list;
  list.ReadFrom(&msg);
  for (size_t n = 0; n < all.size(); ++n) {
    CGXFile full;
    full.FailWritesFrom(static_cast<int>(n));
    EXPECT_FALSE(list.Write(&full, GX_FILE_VERSION)) << n;
    EXPECT_EQ(full.Items().Items().size(), n);

    CGXFile cut(CGXItems({all.begin(), all.begin() + static_cast<long>(n)}), GX_FILE_VERSION);
    CONVIFUserConfig read;
    EXPECT_FALSE(read.Read(&cut, GX_FILE_VERSION)) << n;
    EXPECT_EQ(read.NSettings(), n < 2 + 14 ? 0 : 1) << n;  // whole entries before the cut stay
  }
  CGXFile large(Items("P9|2000000000"), GX_FILE_VERSION);
  EXPECT_FALSE(list.Read(&large, GX_FILE_VERSION));
  EXPECT_EQ(list.NSettings(), 0);
}

TEST(MediaConfig, EntriesComeAndGo) {
  CONVIFUserConfig h264, jpeg;
  CONVIFUserSettings* const a = Add(&h264, "a", "");
  CONVIFUserSettings* const b = Add(&h264, "b", "");
  CONVIFUserSettings* const c = Add(&jpeg, "c", "");
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
    CONVIFUserConfig list;
    EXPECT_EQ(IsSettingsActive(*Add(&list, c.profile, c.encoder, c.encoding, c.width), camera.Profiles,
                               camera.Encoders),
              c.active)
        << c.name;
  }
}

TEST(MediaConfig, EntryToStreamWith) {
  const CModel camera{{"H264", 1280}, {"JPEG", 640}};
  const auto list = [](const char* defaultProfile, std::initializer_list<const char*> profiles) {
    std::string text = std::string(defaultProfile) + "|" + std::to_string(profiles.size());
    for (const char* profile : profiles) text += std::string("|n|") + profile + "|<DEFAULT>|1||0|0|0|0|0|0|0|4";
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
    CGXMSG msg(Items(c.list));
    CONVIFUserConfig entries;
    entries.ReadFrom(&msg);
    EXPECT_EQ(GetRTSPResolution(entries, c.index, camera.Profiles, camera.Encoders), c.chosen) << c.name;
  }
}

TEST(MediaConfig, DefaultsComeFromTheNearestProfile) {
  const struct {
    const char* name;
    CModel camera;
    const char *h264, *jpeg;  // profile token and encoding of the entry; empty: none
  } cases[] = {
      {"both", {{"H264", 1280}, {"H264", 704}, {"JPEG", 320}}, "P1 H264", "P2 JPEG"},
      {"JPEG only", {{"JPEG", 1280}, {"JPEG", 640}}, "P1 JPEG", "P1 JPEG"},
      {"H.264 only", {{"H264", 1280}}, "P0 H264", ""},
      {"neither", {{"MPEG4", 640}}, "", ""},
  };
  const auto text = [](const CONVIFUserConfig& list) {
    const CONVIFUserSettings* const entry = list.Settings();
    if (entry == nullptr) return std::string();
    EXPECT_EQ(list.NSettings(), 1);
    EXPECT_TRUE(entry->ReadOnlyProfile());
    EXPECT_EQ(entry->Transport(), RTP_TRANSPORT_TCP);
    EXPECT_EQ(entry->Name().Str(), "Profile " + entry->ProfileToken().Str().substr(1));
    return entry->ProfileToken().Str() + " " + entry->Settings()->VideoEncoderType().Str();
  };
  for (const auto& c : cases) {
    CONVIFUserConfig h264, jpeg;
    EXPECT_TRUE(LoadDefaultUserSettings(c.camera.Profiles, &h264, &jpeg));
    EXPECT_EQ(text(h264), c.h264) << c.name;
    EXPECT_EQ(text(jpeg), c.jpeg) << c.name;
    EXPECT_TRUE(
        LoadDefaultUserSettings(c.camera.Profiles, &h264, &jpeg));  // lists with entries stay as they are
    EXPECT_EQ(text(h264), c.h264) << c.name;
  }
}

TEST(MediaConfig, DefaultsFollowTheCameraWhileOthersRead) {
  const CModel first{{"H264", 640}}, second{{"H264", 1280}};
  CONVIFUserConfig h264, jpeg;
  CONVIFUserSettings* const fixed = Add(&h264, "P0", "E0", "H264", 320);
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
  }
  stop = true;
  reader.join();
  EXPECT_EQ(h264.Settings(1)->Settings()->Resolution().Width, 640);
  EXPECT_EQ(fixed->Settings()->Resolution().Width, 320);
}

}  // namespace
