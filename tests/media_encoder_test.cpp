// Stream settings, encoders and their options: what is read from cameras, and the stored and message forms.
#include "host/base/gxassert.h"
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

TEST(MediaEncoder, ReadsAnswersOfACamera) {
  const auto answer = ParseXML(DataFile("aldgate_encoders.xml"));
  CEncoderConfig encoders;
  ForEachChild(answer->FindResponseMSG("GetVideoEncoderConfigurations"),
               [&](CONVIFMsg* child) { encoders.AddEncoder(child); });
  CEncoder* const first = encoders.Encoders();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->UseCount(), "02");
  EXPECT_EQ(encoders.EncoderByToken("enc1"), first->Next());
  EXPECT_EQ(encoders.EncoderByToken("ENC1"), nullptr);

  const auto options = ParseXML(DataFile("aldgate_options.xml"));
  ForEachChild(options->FindResponseMSG("GetVideoEncoderConfigurationOptions")->Messages(),
               [&](CONVIFMsg* child) { first->AddOptions(child); });

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
      {"without a prefix", "<QualityRange><Min>2</Min></QualityRange>",
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
    ForEachChild(ParseXML(std::string("<o>") + c.options + "</o>").get(),
                 [&](CONVIFMsg* child) { encoder.AddOptions(child); });
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
  CONVIFSettings settings;
  ReadMessage(&settings, "H264|5|60|2|25|3000|1280|720|3");
  settings.AudioEncoderType("G711");
  settings.LoadFrom(Configuration("<Encoding>MPEG4</Encoding>").get(), nullptr);
  EXPECT_EQ(settings.AudioEncoderType(), "G711");
  EXPECT_EQ(DumpMessage(settings), "MPEG4|0|0|0|0|0|0|0|4");
  const auto audio = ParseXML("<a><b:Encoding>AAC</b:Encoding></a>");
  settings.LoadFrom(Configuration("<x>1</x>").get(), audio.get());
  EXPECT_EQ(settings.AudioEncoderType(), "AAC");
}

TEST(MediaSettings, SameConfig) {
  const char* const MINE = "H264|5|60|2|25|3000|1280|720|1";
  const struct {
    const char *name, *mine, *theirs;
    bool same;
  } cases[] = {
      {"the same", MINE, MINE, true},
      {"quality", MINE, "H264|6|60|2|25|3000|1280|720|1", false},
      {"GOV length", MINE, "H264|5|61|2|25|3000|1280|720|1", false},
      {"interval", MINE, "H264|5|60|1|25|3000|1280|720|1", false},
      {"frame rate is free", MINE, "H264|5|60|2|1|3000|1280|720|1", true},
      {"bit rate", MINE, "H264|5|60|2|25|1|1280|720|1", false},
      {"width", MINE, "H264|5|60|2|25|3000|1281|720|1", false},
      {"height", MINE, "H264|5|60|2|25|3000|1280|721|1", false},
      {"another profile", MINE, "H264|5|60|2|25|3000|1280|720|3", false},
      {"any profile wanted", MINE, "H264|5|60|2|25|3000|1280|720|4", true},
      {"profile wanted, none known", "H264|5|60|2|25|3000|1280|720|4", MINE, false},
      {"JPEG has no GOV", "JPEG|5|60|2|25|3000|1280|720|1", "JPEG|5|1|2|25|3000|1280|720|2", true},
      {"letter case", "jpeg|5|60|2|25|3000|1280|720|1", "JPEG|5|60|2|25|3000|1280|720|1", false},
      {"a third encoding", "MPEG4|5|60|2|25|3000|1280|720|1", "MPEG4|5|60|2|25|3000|1280|720|1", false},
  };
  for (const auto& c : cases) {
    CONVIFSettings mine, theirs;
    ReadMessage(&mine, c.mine);
    ReadMessage(&theirs, c.theirs);
    theirs.AudioEncoderType("free");
    EXPECT_EQ(mine.IsSameConfig(&theirs), c.same) << c.name;
  }
}

}  // namespace
