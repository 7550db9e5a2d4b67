// A camera's RTSP side with a script, and packets to feed to a session.
#pragma once

#include "host/video/rtsp_profile.h"
#include "rtsp/rtsp.h"
#include "tests/support/scripted_server.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

// A camera that answers its n-th request with the n-th reply, and then only listens.
class CRtspCamera : public CScriptedServer {
 public:
  explicit CRtspCamera(std::vector<std::string> replies)
      : CScriptedServer([replies = std::move(replies), next = size_t{0}](const std::string&) mutable {
          return next < replies.size() ? std::optional(replies[next++]) : std::nullopt;
        }) {}
  std::string URL(const std::string& path = "/live") const {
    return "rtsp://127.0.0.1:" + std::to_string(Port()) + path;
  }
};

inline std::string Ok(const std::string& headers = "") {
  return "RTSP/1.0 200 OK\r\nCSeq: 1\r\n" + headers + "\r\n";
}

inline std::string Interleaved(int channel, const std::string& data) {
  std::string frame{'$', static_cast<char>(channel), static_cast<char>(data.size() >> 8),
                    static_cast<char>(data.size())};
  return frame + data;
}

// The session and what it plays, as a streaming mode sets them up.
struct CSession {
  CSession(const CRtspCamera& server, RTP_TRANSPORT transport, const char* user = "", const char* password = "")
      : RTSP(server.URL().c_str(), server.URL("/live/track1").c_str(), transport, user, password, -1, nullptr,
             nullptr) {
    Profile.ControlURL(server.URL("/live/track1").c_str());
  }
  bool Play() { return RTSP.Login() && RTSP.Init(&Profile) && RTSP.InitSession(); }

  // The next packet's bytes; empty when there was none.
  std::string Next(int timeoutMs = 20000, int size = 2048) {
    std::string packet(static_cast<size_t>(size), 0);
    const int length = RTSP.WaitNextPacket(reinterpret_cast<unsigned char*>(packet.data()), size, timeoutMs);
    packet.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return packet;
  }

  CRTSPProfile Profile;
  CRTSP RTSP;
};
