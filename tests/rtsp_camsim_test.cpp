// Sessions with simulated cameras: Digest, both transports, pictures judged by libjpeg and ffprobe.
#include "host/frame.h"
#include "media/session_description.h"
#include "rtsp/access_unit.h"
#include "rtsp/jpeg_assembler.h"
#include "rtsp/rtsp.h"
#include "tests/support/camsim_process.h"
#include "tests/support/eventually.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <memory>

namespace {

constexpr size_t PICTURES = 10;

// What a camera says of a stream. The connection stays open: a stream that nobody looks at any more is put
// away.
struct CDescribed {
  explicit CDescribed(const char* url) : URL(url) {
    char answer[2049] = {};
    EXPECT_TRUE(Eventually(60, [&] {  // it may take longer than an answer may to start the encoder
      Session = std::make_unique<CRTSP>(URL, URL, RTP_TRANSPORT_TCP, "admin", "secret", -1, nullptr, nullptr);
      return Session->RTSPExchange(url, "DESCRIBE", "Accept: application/sdp", answer, 2048, 0) != 0;
    }));
    Description.Parse(answer, 2048, url);
  }

  const CGXString URL;
  std::unique_ptr<CRTSP> Session;
  CSessionDescription Description;
};

// A stream that plays until the object goes.
class CStream {
 public:
  CStream(const CDescribed& described, RTP_TRANSPORT transport)
      : m_Session(described.URL, described.Description.ControlURLVideo(), transport, "admin", "secret", -1,
                  nullptr, nullptr) {
    CRTSPProfile profile;
    profile.ControlURL(described.Description.ControlURLVideo());
    EXPECT_TRUE(m_Session.Login() && m_Session.Init(&profile) && m_Session.InitSession());
  }
  ~CStream() { m_Session.Stop(); }

  int Next(unsigned char* packet, int size) { return m_Session.WaitNextPacket(packet, size, 20000); }

 private:
  CRTSP m_Session;
};

// What a program that is not ours says about these bytes, standard error included.
std::string Judge(const std::string& bytes, const std::string& program) {
  const std::string file = testing::TempDir() + "rtsp_camsim_test." + std::to_string(getpid());
  std::ofstream(file, std::ios::binary) << bytes;
  const CCommandResult result = RunCommand(program + " " + file + " 2>&1 >/dev/null");
  std::remove(file.c_str());
  return result.output + (result.status == 0 ? "" : "exit status " + std::to_string(result.status));
}

void PlayJPEG(CStream& stream) {
  CJPEGAssembler assembler;
  unsigned char packet[2048];
  std::vector<std::string> pictures;  // judged when all are there, or the socket would run over meanwhile
  while (pictures.size() < PICTURES) {
    const int length = stream.Next(packet, sizeof packet);
    ASSERT_GT(length, 0);
    if (assembler.Add(packet, length) == CJPEGAssembler::Result::PICTURE)
      pictures.emplace_back(assembler.Picture().begin(), assembler.Picture().end());
  }
  for (const std::string& picture : pictures) EXPECT_EQ("", Judge(picture, "djpeg -strict"));
}

void PlayH264(CStream& stream, const std::vector<unsigned char>& sets) {
  CH264Depacketizer depacketizer(-1);
  CAccessUnitCollector collector;
  std::vector<unsigned char> nal(128000);
  EXPECT_FALSE(sets.empty());
  std::string movie(sets.begin(), sets.end());
  unsigned char packet[2048];
  bool key = false;
  for (size_t pictures = 0; pictures < PICTURES;) {
    const int length = stream.Next(packet, sizeof packet);
    ASSERT_GT(length, 0);
    for (int n = depacketizer.ProcessRTP(packet, length, nal.data(), static_cast<int>(nal.size())); n > 0;
         n = depacketizer.ProcessRTP(nullptr, 0, nal.data(), static_cast<int>(nal.size()))) {
      key = collector.Add(nal.data(), static_cast<size_t>(n)) == CAccessUnitCollector::Result::KEY || key;
      if (!key || collector.Unit().empty()) continue;
      movie.append(collector.Unit().begin(), collector.Unit().end());
      ++pictures;
    }
  }
  EXPECT_EQ("", Judge(movie, "ffprobe -v error -f h264 -show_frames"));
}

}  // namespace

TEST(RtspCamsim, PicturesAreWholeOverBothTransports) {
  CCamsim cameras({"--camera", "ptz", "--camera", "door"});
  ASSERT_TRUE(cameras.Ready()) << cameras.Output();
  for (const RTP_TRANSPORT transport : {RTP_TRANSPORT_TCP, RTP_TRANSPORT_UDP}) {
    SCOPED_TRACE(transport == RTP_TRANSPORT_TCP ? "TCP" : "UDP");
    const CDescribed door("rtsp://127.0.0.12:8554/live.sdp"), ptz("rtsp://127.0.0.11:8554/Profile_1");
    CStream jpeg(door, transport);
    PlayJPEG(jpeg);
    CStream h264(ptz, transport);
    PlayH264(h264, ptz.Description.StartupData());
    CStream joining(door, transport);
    PlayJPEG(joining);
  }
}
