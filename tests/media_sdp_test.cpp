// Session descriptions as cameras send them, with the ways in which they differ.
#include "media/session_description.h"
#include "tests/media_support.h"

namespace {

struct CDigested : CSessionDescription {
  explicit CDigested(const std::string& sdp, const char* uri = "rtsp://cam/live") {
    const std::string answer = "RTSP/1.0 200 OK\r\nCSeq: 3\r\n\r\n" + sdp;
    Parse(answer.data(), static_cast<int>(answer.size()), uri);
  }
  std::string Startup() const { return std::string(StartupData().begin(), StartupData().end()); }
};

std::string Bytes(const char* text, size_t length) {
  return std::string(text, length);
}

TEST(MediaSDP, AWholeAnswer) {
  const std::string sdp =
      "v=0\r\no=- 1 1 IN IP4 192.168.1.20\r\ns=Media\r\nt=0 0\r\na=control:*\r\na=range:npt=0-\r\n"
      "m=video 0 RTP/AVP 96 97\r\na=rtpmap:96 H264/90000\r\n"
      "a=fmtp:96 profile-level-id=4D0029; "
      "packetization-mode=1;sprop-parameter-sets=Z00AKZpmA8ARPyzcBAQEBQ==,aO48gA==\r\n"
      "a=control:trackID=1\r\nm=audio 0 RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\na=control:trackID=2\r\n";
  const std::string answer = DescribeAnswer(sdp, "  rtsp://192.168.1.20/live/");
  CSessionDescription description;
  description.Parse(answer.data(), static_cast<int>(answer.size()), "rtsp://10.0.0.2/live/");
  EXPECT_EQ(description.ContentBase(), "rtsp://192.168.1.20/live/");
  EXPECT_EQ(description.VideoFormatTag(), 96);
  EXPECT_EQ(description.AudioFormatTag(), 0);
  EXPECT_EQ(description.ControlURLVideo(), "rtsp://10.0.0.2/live/trackID=1");
  EXPECT_EQ(description.ControlURLAudio(), "rtsp://10.0.0.2/live/trackID=2");
  const std::string startup(description.StartupData().begin(), description.StartupData().end());
  EXPECT_EQ(startup, Bytes("\0\0\1\x67\x4d\x00\x29\x9a\x66\x03\xc0\x11\x3f\x2c\xdc\x04\x04\x04\x05"
                           "\0\0\1\x68\xee\x3c\x80",
                           26));
  CMediaDescription media;
  ASSERT_TRUE(description.GetMediaDescription("video", &media));
  EXPECT_EQ(media.Port, "0");
  EXPECT_EQ(media.Proto, "RTP/AVP");
  EXPECT_EQ(media.Format, "96 97");
  EXPECT_FALSE(description.GetMediaDescription("text", &media));

  // Describing again: what the new answer has not keeps the tags and loses the rest.
  description.Parse("RTSP/1.0 200 OK\r\n\r\n", 19, "rtsp://10.0.0.2/live");
  EXPECT_EQ(description.ContentBase(), "");
  EXPECT_EQ(description.VideoFormatTag(), 96);
  EXPECT_EQ(description.ControlURLVideo(), "rtsp://10.0.0.2/live");
  EXPECT_TRUE(description.StartupData().empty());
  EXPECT_FALSE(description.GetMediaDescription("video", &media));
}

TEST(MediaSDP, ControlURLs) {
  const char* const BASE = "rtsp://cam/live";
  const struct {
    const char* name;
    const char* sdp;
    const char* uri;
    const char* video;
    const char* audio;
  } cases[] = {
      {"none", "m=video 0 RTP/AVP 96\r\n", BASE, BASE, BASE},
      {"session level only", "a=control:*\r\nm=video 0 RTP/AVP 96\r\n", BASE, "rtsp://cam/live/*",
       "rtsp://cam/live/*"},
      {"slash rule", "a=control:*\r\n", "rtsp://cam/live/", "rtsp://cam/live/*", "rtsp://cam/live/*"},
      {"first of a medium", "m=video 0 R 96\na=control:v1\na=control:v2\nm=video 0 R 97\na=control:v3\n", BASE,
       "rtsp://cam/live/v1", "rtsp://cam/live/v1"},
      {"session beats video for neither",
       "m=audio 0 R 0\na=control:a\nm=x 0 R 0\na=control:s\nm=video 0 R 9\na=control:v\n", BASE,
       "rtsp://cam/live/v", "rtsp://cam/live/a"},
      {"video serves for audio before session", "a=control:*\nm=video 0 R 96\na=control:v\n", BASE,
       "rtsp://cam/live/v", "rtsp://cam/live/v"},
      {"both absolute", "m=video 0 R 96\na=control:RTSP://cam/v\nm=audio 0 R 0\na=control:rtsp://cam/a\n", BASE,
       "RTSP://cam/v", "rtsp://cam/a"},
      {"absolute audio, relative video", "m=video 0 R 96\na=control:v\nm=audio 0 R 0\na=control:rtsp://cam/a\n",
       BASE, "rtsp://cam/live/v", "rtsp://cam/live/rtsp://cam/a"},
      {"relative audio, absolute video", "m=video 0 R 96\na=control:rtsp://cam/v\nm=audio 0 R 0\na=control:a\n",
       BASE, "rtsp://cam/v", "a"},
      {"indented lines, bare LF, no last line end", "v=0\n  m=video 0 R 96\n \n  a=control:v", BASE,
       "rtsp://cam/live/v", "rtsp://cam/live/v"},
      {"empty control", "m=video 0 R 96\na=control:\n", BASE, "rtsp://cam/live/", "rtsp://cam/live/"},
  };
  for (const auto& c : cases) {
    const CDigested description(c.sdp, c.uri);
    EXPECT_EQ(description.ControlURLVideo(), c.video) << c.name;
    EXPECT_EQ(description.ControlURLAudio(), c.audio) << c.name;
  }
}

TEST(MediaSDP, ParameterSets) {
  const std::string SPS = Bytes("\0\0\1ABC", 6);
  const std::string filler(1024, 'A');
  const struct {
    const char* name;
    std::string sdp;
    std::string startup;
  } cases[] = {
      {"two sets", "a=fmtp:96 sprop-parameter-sets=QUJD,RA==\r\n", SPS + Bytes("\0\0\1D", 4)},
      {"a bad and an empty set are skipped", "a=fmtp:96 sprop-parameter-sets=Q!JD,,QUJD,\r\n", SPS},
      {"blanks before the name", "a=fmtp:96 x=1;   sprop-parameter-sets=QUJD;y=2\r\n", SPS},
      {"other spelling", "a=fmtp:96 Sprop-Parameter-Sets=QUJD\r\n", ""},
      {"a later one replaces", "a=fmtp:96 sprop-parameter-sets=RA==\r\na=fmtp:97 sprop-parameter-sets=QUJD\r\n",
       SPS},
      {"a later empty one too", "a=fmtp:96 sprop-parameter-sets=QUJD\r\na=fmtp:97 sprop-parameter-sets=\r\n",
       ""},
      {"on a line before the last fmtp", "a=x sprop-parameter-sets=QUJD\r\na=fmtp:97 a=b\r\n", SPS},
      {"on a line after it", "a=fmtp:97 a=b\r\na=x sprop-parameter-sets=QUJD\r\n", ""},
      {"nothing before the first blank", "a=fmtp:96;sprop-parameter-sets=QUJD\r\n", ""},
      {"1024 bytes of line are read up to 1023",
       "a=fmtp:96 " + filler.substr(0, 1024 - 10 - 27) + ";sprop-parameter-sets=QUJDx\r\n", SPS},
      {"1025 are not read", "a=fmtp:96 " + filler.substr(0, 1025 - 10 - 26) + ";sprop-parameter-sets=QUJD\r\n",
       ""},
  };
  for (const auto& c : cases) EXPECT_EQ(CDigested(c.sdp).Startup(), c.startup) << c.name;

  // An item is cut at 1023 characters, which Base64 decodes to 767 bytes.
  CSessionDescription description;
  description.ExtractStartupParam("sprop-parameter-sets", std::string(4096, 'A'));
  EXPECT_EQ(description.StartupData().size(), 3u + 767u);
}

}  // namespace
