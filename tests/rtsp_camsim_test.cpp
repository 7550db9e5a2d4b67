// Sessions with simulated cameras: Digest, both transports, pictures judged by libjpeg and ffprobe.
#include "host/frame.h"
#include "media/session_description.h"
#include "rtsp/access_unit.h"
#include "rtsp/jpeg_assembler.h"
#include "rtsp/rtsp.h"
#include "tests/support/camsim_process.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int PICTURES = 10;

// A stream of a simulated camera that plays until the object goes. The describing connection stays open
// meanwhile.
class CStream {
 public:
  CStream(const std::string& url, RTP_TRANSPORT transport)
      : m_Describe(url.c_str(), url.c_str(), RTP_TRANSPORT_TCP, "admin", "secret", -1, nullptr, nullptr) {
    char answer[2049] = {};
    EXPECT_TRUE(m_Describe.RTSPExchange(url.c_str(), "DESCRIBE", "Accept: application/sdp", answer, 2048, 0));
    m_Description.Parse(answer, 2048, url.c_str());
    const CGXString track = m_Description.ControlURLVideo();
    m_Profile.ControlURL(track);
    m_pSession =
        std::make_unique<CRTSP>(url.c_str(), track, transport, "admin", "secret", -1, nullptr, nullptr);
    EXPECT_TRUE(m_pSession->Login() && m_pSession->Init(&m_Profile) && m_pSession->InitSession());
  }
  ~CStream() { m_pSession->Stop(); }

  const CSessionDescription& Description() const { return m_Description; }
  int Next(unsigned char* packet, int size) { return m_pSession->WaitNextPacket(packet, size, 5000); }

 private:
  CRTSP m_Describe;
  CSessionDescription m_Description;
  CRTSPProfile m_Profile;
  std::unique_ptr<CRTSP> m_pSession;
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
  for (int pictures = 0; pictures < PICTURES;) {
    const int length = stream.Next(packet, sizeof packet);
    ASSERT_GT(length, 0);
    if (assembler.Add(packet, length) != CJPEGAssembler::Result::PICTURE) continue;
    ++pictures;
    const std::string picture(assembler.Picture().begin(), assembler.Picture().end());
    ASSERT_EQ("", Judge(picture, "djpeg -strict")) << "libjpeg, picture " << pictures;
  }
}

void PlayH264(CStream& stream) {
  CH264Depacketizer depacketizer(-1);
  CAccessUnitCollector collector;
  std::vector<unsigned char> nal(128000);
  const std::vector<unsigned char>& sets = stream.Description().StartupData();
  EXPECT_FALSE(sets.empty());
  std::string movie(sets.begin(), sets.end());
  unsigned char packet[2048];
  bool key = false;
  for (int pictures = 0; pictures < PICTURES;) {
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
    CStream door("rtsp://127.0.0.12:8554/live.sdp", transport);
    PlayJPEG(door);
    CStream ptz("rtsp://127.0.0.11:8554/Profile_1", transport);
    PlayH264(ptz);
  }
}
