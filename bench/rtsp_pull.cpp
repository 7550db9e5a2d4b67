// rtsp_pull URL [--udp] [--user NAME] [--first]: receives one video stream through CRTSP as the driver's
// streaming modes do, until it ends, and prints what came. The password is taken from RTSP_PASSWORD.
#include "host/video/depacketizer.h"
#include "media/session_description.h"
#include "rtsp/access_unit.h"
#include "rtsp/jpeg_assembler.h"
#include "rtsp/rtsp.h"
#include "util/rtp.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr int PACKET_BYTES = 2048;
constexpr int NAL_BYTES = 128000;
constexpr int DESCRIBE_BYTES = 2048;
constexpr int WAIT_MS = 5000;
constexpr int JPEG_FORMAT = 26;
constexpr int RTP_MARKER_BIT = 0x80;
constexpr int PLAY_ATTEMPTS = 3;
constexpr unsigned PLAY_PAUSE_MS = 200;

struct Options {
  const char* URL = nullptr;
  const char* User = "";
  RTP_TRANSPORT Transport = RTP_TRANSPORT_TCP;
  bool First = false;
};

int Fail(const char* what, const char* detail) {
  std::fprintf(stderr, "rtsp_pull: %s%s\n", what, detail);
  return 1;
}

bool Parse(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    const char* const argument = argv[i];
    if (std::strcmp(argument, "--udp") == 0) {
      options->Transport = RTP_TRANSPORT_UDP;
    } else if (std::strcmp(argument, "--first") == 0) {
      options->First = true;
    } else if (std::strcmp(argument, "--user") == 0 && i + 1 < argc) {
      options->User = argv[++i];
    } else if (argument[0] == '-' || options->URL != nullptr) {
      Fail("unknown option ", argument);
      return false;
    } else {
      options->URL = argument;
    }
  }
  if (options->URL != nullptr && std::strncmp(options->URL, "rtsp://", 7) == 0 &&
      std::strchr(options->URL + 7, '/') != nullptr)
    return true;
  std::fprintf(stderr,
               "usage: rtsp_pull rtsp://HOST[:PORT]/PATH [--udp] [--user NAME] [--first]\n"
               "       the password is taken from the environment variable RTSP_PASSWORD\n");
  return false;
}

// Packets, and pictures told apart by their time.
struct Counts {
  unsigned long long Packets = 0, Pictures = 0, Bytes = 0;
  uint32_t Time = 0;

  void Add(const unsigned char* packet, int length) {
    ++Packets;
    Bytes += static_cast<unsigned long long>(length);
    if (length < RTP_HEADER_BYTES) return;
    const uint32_t time = ReadBE32(packet + 4);
    if (Pictures == 0 || time != Time) ++Pictures;
    Time = time;
  }
};

// Where results go; the driver's own trace lines keep away from it.
FILE* g_pOut = nullptr;

bool OpenOutput() {
  g_pOut = fdopen(dup(STDOUT_FILENO), "w");
  return g_pOut != nullptr && dup2(STDERR_FILENO, STDOUT_FILENO) >= 0;
}

bool Write(std::span<const unsigned char> bytes) {
  return std::fwrite(bytes.data(), 1, bytes.size(), g_pOut) == bytes.size();
}

// Each takes packets until the first whole picture has been written.
class CFirstJPEG {
 public:
  bool Add(const unsigned char* packet, int length) {
    return m_Assembler.Add(packet, length) == CJPEGAssembler::Result::PICTURE && Write(m_Assembler.Picture());
  }

 private:
  CJPEGAssembler m_Assembler;
};

class CFirstH264 {
 public:
  explicit CFirstH264(std::vector<unsigned char> parameterSets) : m_Picture(std::move(parameterSets)) {}

  bool Add(const unsigned char* packet, int length) {
    if (length < RTP_HEADER_BYTES) return false;
    const uint32_t time = ReadBE32(packet + 4);
    if (m_bKey && time != m_dwTime) return Write(m_Picture);
    m_dwTime = time;
    for (int n = m_Depacketizer.ProcessRTP(packet, length, m_Nal.data(), NAL_BYTES); n > 0;
         n = m_Depacketizer.ProcessRTP(nullptr, 0, m_Nal.data(), NAL_BYTES))
      AddUnit(static_cast<size_t>(n));
    return m_bKey && (packet[1] & RTP_MARKER_BIT) != 0 && Write(m_Picture);
  }

 private:
  void AddUnit(size_t length) {
    const bool key = m_Collector.Add(m_Nal.data(), length) == CAccessUnitCollector::Result::KEY;
    if (key) m_Picture.insert(m_Picture.end(), m_Collector.Unit().begin(), m_Collector.Unit().end());
    m_bKey = m_bKey || key;
  }

  std::vector<unsigned char> m_Picture;
  bool m_bKey = false;
  uint32_t m_dwTime = 0;
  std::vector<unsigned char> m_Nal = std::vector<unsigned char>(NAL_BYTES);
  CH264Depacketizer m_Depacketizer{-1};
  CAccessUnitCollector m_Collector;
};

template <typename Picture>
int PullFirst(CRTSP& session, Picture picture) {
  unsigned char packet[PACKET_BYTES];
  for (int n; (n = session.WaitNextPacket(packet, PACKET_BYTES, WAIT_MS)) > 0;)
    if (picture.Add(packet, n)) return std::fflush(g_pOut) == 0 ? 0 : Fail("cannot write the picture", "");
  return Fail("the stream ended without a whole picture", "");
}

int PullAll(CRTSP& session) {
  Counts counts;
  unsigned char packet[PACKET_BYTES];
  for (int n; (n = session.WaitNextPacket(packet, PACKET_BYTES, WAIT_MS)) > 0;) counts.Add(packet, n);
  std::fprintf(g_pOut, "packets=%llu pictures=%llu bytes=%llu\n", counts.Packets, counts.Pictures,
               counts.Bytes);
  return counts.Packets > 0 ? 0 : Fail("no packet came", "");
}

// Asks for the session description on a connection of its own, like the driver.
bool Describe(const Options& options, const char* password, CSessionDescription* description) {
  CRTSP session(options.URL, options.URL, RTP_TRANSPORT_TCP, options.User, password, -1, nullptr, nullptr);
  if (!session.Connected()) return Fail("cannot connect to ", options.URL) == 0;
  char answer[DESCRIBE_BYTES + 1] = {};
  if (!session.RTSPExchange(options.URL, "DESCRIBE", "Accept: application/sdp", answer, DESCRIBE_BYTES, 0)) {
    const bool refused = std::strstr(answer, "Unauthorized") != nullptr;
    return Fail("no description of the stream: ", refused ? "wrong user name or password" : "no answer") == 0;
  }
  if (std::strstr(answer, "m=video") == nullptr) return Fail("no video at ", options.URL) == 0;
  description->Parse(answer, DESCRIBE_BYTES, options.URL);
  return true;
}

// The playing session; null when the camera refuses it. One that is just putting the described stream away says
// that it is busy, so it is asked again.
std::unique_ptr<CRTSP> Play(const Options& options, const char* password, CRTSPProfile* profile) {
  for (int attempt = 1;; ++attempt) {
    auto session = std::make_unique<CRTSP>(options.URL, profile->ControlURL(), options.Transport, options.User,
                                           password, -1, nullptr, nullptr);
    if (session->Login() && session->Init(profile) && session->InitSession()) return session;
    if (attempt == PLAY_ATTEMPTS) return nullptr;
    Sleep(PLAY_PAUSE_MS);
  }
}

int Pull(const Options& options) {
  const char* const password = std::getenv("RTSP_PASSWORD");
  CSessionDescription description;
  if (!Describe(options, password, &description)) return 1;
  CRTSPProfile profile;
  profile.ControlURL(description.ControlURLVideo());
  profile.Transport(options.Transport);
  const std::unique_ptr<CRTSP> session = Play(options, password, &profile);
  if (session == nullptr) return Fail("the camera does not play ", description.ControlURLVideo());
  int result;
  if (!options.First)
    result = PullAll(*session);
  else if (description.VideoFormatTag() == JPEG_FORMAT)
    result = PullFirst(*session, CFirstJPEG());
  else
    result = PullFirst(*session, CFirstH264(description.StartupData()));
  session->Stop();
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!Parse(argc, argv, &options)) return 2;
  return OpenOutput() ? Pull(options) : Fail("cannot write to standard output", "");
}
