// Stream settings, encoders and their options: what is read from cameras, and the stored and message forms.
#include "host/gxassert.h"
#include "media/encoder.h"
#include "tests/media_support.h"

namespace {

std::unique_ptr<CONVIFMsg> Configuration(const std::string& content, const std::string& token = "enc0") {
  return ParseXML("<tt:Configurations token=\"" + token + "\">" + content + "</tt:Configurations>");
}

// What the options element with that content reads as, in message form.
std::string OptionsOf(const std::string& content) {
  CEncoderOptions options;
  options.LoadFrom(ParseXML("<tt:H264>" + content + "</tt:H264>").get());
  return DumpMessage(options);
}

CONVIFSettings Settings(const char* encoding, int profile = H264_PROFILE_NONE) {
  CONVIFSettings settings;
  settings.VideoEncoderType(encoding);
  settings.AudioEncoderType("G711");
  settings.Quality(5);
  settings.GovLength(60);
  settings.EncoderInterval(2);
  settings.FrameRate(25);
  settings.Bitrate(3000);
  settings.Resolution({1280, 720});
  settings.H264Profile(profile);
  return settings;
}

TEST(MediaEncoder, ReadsAnswersOfACamera) {
  const auto answer = ParseDataFile("aldgate_encoders.xml");
  CEncoderConfig encoders;
  for (CONVIFMsg* child = answer->FindResponseMSG("GetVideoEncoderConfigurations")->Messages();
       child != nullptr; child = child->Next())
    encoders.AddEncoder(child);
  CEncoder* const first = encoders.Encoders();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->UseCount(), "02");
  EXPECT_EQ(encoders.EncoderByToken("enc1"), first->Next());
  EXPECT_EQ(encoders.EncoderByToken("ENC1"), nullptr);

  const auto options = ParseDataFile("aldgate_options.xml");
  for (CONVIFMsg* child =
           options->FindResponseMSG("GetVideoEncoderConfigurationOptions")->Messages()->Messages();
       child != nullptr; child = child->Next())
    first->AddOptions(child);

  EXPECT_EQ(DumpMessage(encoders),
            "2"
            "|Primary|enc0|1|6"
            "|1|704|576|1|4|0|0|1|12|256|10000|0"               // JPEG options
            "|2|1280|720|640|360|1|2|1|300|5|30|32|8192|2|3|1"  // H.264 options
            "|H264|3|60|1|30|3000|1280|720|3"                   // settings: "3.9" reads as 3
            "|Snapshots|enc1|0|100|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0"
            "|JPEG|60|0|0|0|0|704|576|4");
  encoders.RemoveAll();
  EXPECT_EQ(DumpMessage(encoders), "0");
}

TEST(MediaEncoder, ReloadTakesOnlyItsOwnConfiguration) {
  CEncoder encoder(
      Configuration("<Name>A</Name><UseCount>1</UseCount><Encoding>JPEG</Encoding><Quality>3</Quality>").get());
  const int asserts = AssertCount();
  EXPECT_FALSE(encoder.ReloadFrom(Configuration("<Name>B</Name>", "enc00").get()));
  EXPECT_EQ(AssertCount(), asserts + 1);
  EXPECT_EQ(encoder.Name(), "A");

  EXPECT_TRUE(
      encoder.ReloadFrom(Configuration("<Name>B</Name><UseCount>7</UseCount><Encoding>H264</Encoding>").get()));
  EXPECT_EQ(AssertCount(), asserts + 1);
  EXPECT_EQ(encoder.Name(), "B");
  EXPECT_EQ(encoder.UseCount(), "7");
  EXPECT_EQ(DumpMessage(*encoder.CurrentConfig()), "H264|0|0|0|0|0|0|0|4");
}

TEST(MediaEncoder, OptionElementsAreTakenByName) {
  const struct {
    const char* name;
    const char* options;
    const char* written;  // after name and token: quality, JPEG, H.264
  } cases[] = {
      {"quality range with prefix", "<tt:QualityRange><tt:Min>1</tt:Min><tt:Max>9</tt:Max></tt:QualityRange>",
       "1|9|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0"},
      {"and without", "<QualityRange><Min>2</Min></QualityRange>",
       "2|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0"},
      {"letter case counts", "<tt:jpeg><tt:FrameRateRange><Min>5</Min></tt:FrameRateRange></tt:jpeg>",
       "0|100|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0"},
      {"one profile beside H264, after it",
       "<tt:H264><x>1</x></tt:H264><tt:H264ProfilesSupported>High</tt:H264ProfilesSupported>",
       "0|100|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|256|10000|1|3"},
      {"before it: forgotten",
       "<tt:H264ProfilesSupported>High</tt:H264ProfilesSupported><tt:H264><x>1</x></tt:H264>",
       "0|100|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|256|10000|0"},
      {"several names beside it: none of them",
       "<tt:H264ProfilesSupported>High Main</tt:H264ProfilesSupported>",
       "0|100|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0|0"},
  };
  for (const auto& c : cases) {
    CEncoder encoder(Configuration("<Name>n</Name>").get());
    const auto options = ParseXML(std::string("<o>") + c.options + "</o>");
    for (CONVIFMsg* child = options->Messages(); child != nullptr; child = child->Next())
      encoder.AddOptions(child);
    EXPECT_EQ(DumpMessage(encoder),
              std::string("n|enc0|") + c.written + "|" + DumpMessage(*encoder.CurrentConfig()))
        << c.name;
  }
}

TEST(MediaEncoder, OptionsAreBounded) {
  std::string many, expected = "16";
  for (int i = 1; i <= 18; ++i) {
    many += "<tt:ResolutionsAvailable><Width>" + std::to_string(i) +
            "</Width><Height>2</Height></tt:ResolutionsAvailable>";
    if (i <= 16) expected += "|" + std::to_string(i) + "|2";
  }
  EXPECT_EQ(OptionsOf(many), expected + "|0|0|0|0|0|0|256|10000|0");
  EXPECT_EQ(OptionsOf("<a:H264PROFILESSUPPORTED>Extended  High\tHigh Main baseline Main Baseline High Extended"
                      "</a:H264PROFILESSUPPORTED>"),
            "0|0|0|0|0|0|0|256|10000|4|2|1|0|3");
  EXPECT_EQ(OptionsOf("<BitrateRange><Min>-99999999999</Min><Max>99999999999999999999</Max></BitrateRange>"),
            "0|0|0|0|0|0|0|-2147483648|2147483647|0");
}

TEST(MediaSettings, LoadKeepsTheAudioEncodingUnlessGiven) {
  CONVIFSettings settings = Settings("H264", H264_PROFILE_HIGH);
  settings.LoadFrom(Configuration("<Encoding>MPEG4</Encoding>").get(), nullptr);
  EXPECT_EQ(settings.AudioEncoderType(), "G711");
  EXPECT_EQ(DumpMessage(settings), "MPEG4|0|0|0|0|0|0|0|4");
  const auto audio = ParseXML("<a><b:Encoding>AAC</b:Encoding></a>");
  settings.LoadFrom(Configuration("<x>1</x>").get(), audio.get());
  EXPECT_EQ(settings.AudioEncoderType(), "AAC");
}

TEST(MediaSettings, SameConfig) {
  using S = CONVIFSettings;
  const struct {
    const char* name;
    CONVIFSettings mine, theirs;
    void (*change)(S*);
    bool same;
  } cases[] = {
      {"width", Settings("H264"), Settings("H264"),
       [](S* s) {
         s->Resolution({1281, 720});
       },
       false},
      {"height", Settings("H264"), Settings("H264"),
       [](S* s) {
         s->Resolution({1280, 721});
       },
       false},
      {"quality", Settings("H264"), Settings("H264"), [](S* s) { s->Quality(6); }, false},
      {"interval", Settings("H264"), Settings("H264"), [](S* s) { s->EncoderInterval(1); }, false},
      {"bit rate", Settings("H264"), Settings("H264"), [](S* s) { s->Bitrate(1); }, false},
      {"GOV length", Settings("H264"), Settings("H264"), [](S* s) { s->GovLength(1); }, false},
      {"frame rate is free", Settings("H264"), Settings("H264"), [](S* s) { s->FrameRate(1); }, true},
      {"audio is free", Settings("H264"), Settings("H264"), [](S* s) { s->AudioEncoderType(""); }, true},
      {"another profile", Settings("H264", 1), Settings("H264", 3), nullptr, false},
      {"any profile wanted", Settings("H264", 1), Settings("H264", 4), nullptr, true},
      {"profile wanted, none known", Settings("H264", 4), Settings("H264", 1), nullptr, false},
      {"JPEG has no GOV", Settings("JPEG", 1), Settings("JPEG", 2), [](S* s) { s->GovLength(1); }, true},
      {"letter case", Settings("jpeg"), Settings("JPEG"), nullptr, false},
      {"a third encoding", Settings("MPEG4"), Settings("MPEG4"), nullptr, false},
  };
  for (auto c : cases) {
    if (c.change != nullptr) c.change(&c.theirs);
    EXPECT_EQ(c.mine.IsSameConfig(&c.theirs), c.same) << c.name;
  }
}

TEST(MediaSettings, StoredForms) {
  const CONVIFSettings settings = Settings("H264", H264_PROFILE_HIGH);
  const std::string numbers = "|5|60|2|25|3000|1280|720|3";
  EXPECT_EQ(DumpMessage(settings), "H264" + numbers);

  CGXFile file;
  EXPECT_TRUE(settings.Write(&file, 531));  // the newest form, whatever the version
  EXPECT_EQ(Dump(file.Items()), "H264|G711" + numbers);

  for (const auto& [version, audio] : {std::pair(812, "kept"), std::pair(813, "G711")}) {
    CGXItems items;
    items.Append("H264");
    if (version > 812) items.Append("G711");
    for (int number : {5, 60, 2, 25, 3000, 1280, 720, 3}) items.Append(number);
    CGXFile stored(items, version);
    CONVIFSettings read;
    read.AudioEncoderType("kept");
    EXPECT_TRUE(read.Read(&stored, version));
    EXPECT_EQ(DumpMessage(read), "H264" + numbers);
    EXPECT_EQ(read.AudioEncoderType(), audio);
  }
}

}  // namespace
