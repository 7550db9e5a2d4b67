// rtsp_feeder FILE.h264 PORT PICTURES RATE: serves an Annex B file over RTSP on 127.0.0.1, again and again up
// to PICTURES pictures, RATE a second (0: as fast as the receiver takes them), to any number of clients.
// Each picture is one send over TCP. It is only as much of a server as measuring receivers needs.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

constexpr size_t PAYLOAD_BYTES = 1400;
constexpr unsigned CLOCK_HZ = 90000;

std::string Base64(std::string_view bytes) {
  static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    unsigned group = 0;
    for (size_t j = 0; j < 3; ++j)
      group = group << 8 | (i + j < bytes.size() ? static_cast<unsigned char>(bytes[i + j]) : 0u);
    for (size_t j = 0; j < 4; ++j) text += i + j <= bytes.size() ? digits[group >> (18 - 6 * j) & 63] : '=';
  }
  return text;
}

std::vector<std::string_view> NALUnits(std::string_view file) {
  std::vector<std::string_view> units;
  const std::string_view code("\0\0\1", 3);
  for (size_t at = file.find(code); at != std::string_view::npos;) {
    const size_t next = file.find(code, at + 3);
    std::string_view unit = file.substr(at + 3, next == std::string_view::npos ? next : next - at - 3);
    while (!unit.empty() && unit.back() == 0) unit.remove_suffix(1);
    if (!unit.empty()) units.push_back(unit);
    at = next;
  }
  return units;
}

int Type(std::string_view nal) {
  return nal[0] & 31;
}

// The interleaved frames of one picture; numbers and times are filled in when it is sent.
using Picture = std::vector<std::string>;

std::string Packet(std::string_view head, std::string_view data) {
  return std::string(12, 0).append(head).append(data);
}

void Packetise(std::string_view nal, Picture* picture) {
  if (nal.size() <= PAYLOAD_BYTES) {
    picture->push_back(Packet("", nal));
    return;
  }
  for (size_t at = 1; at < nal.size(); at += PAYLOAD_BYTES) {  // FU-A
    const bool first = at == 1, last = at + PAYLOAD_BYTES >= nal.size();
    const char head[2] = {static_cast<char>((nal[0] & 0xE0) | 28),
                          static_cast<char>((first ? 0x80 : 0) | (last ? 0x40 : 0) | Type(nal))};
    picture->push_back(Packet({head, 2}, nal.substr(at, PAYLOAD_BYTES)));
  }
}

struct Movie {
  std::vector<Picture> Pictures;
  std::string SDP;

  explicit Movie(std::string_view file) {
    std::string parameters;
    bool complete = true;
    for (const std::string_view nal : NALUnits(file)) {
      const bool slice = Type(nal) == 1 || Type(nal) == 5;
      if (complete && (!slice || nal[1] & 0x80)) Pictures.emplace_back();
      complete = slice;
      Packetise(nal, &Pictures.back());
      if ((Type(nal) == 7 || Type(nal) == 8) && Pictures.size() == 1)
        parameters += (parameters.empty() ? "" : ",") + Base64(nal);
    }
    SDP =
        "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=feeder\r\nt=0 0\r\nm=video 0 RTP/AVP 96\r\na=rtpmap:96 "
        "H264/90000\r\n"
        "a=fmtp:96 packetization-mode=1;sprop-parameter-sets=" +
        parameters + "\r\na=control:track1\r\n";
  }
};

class CClient {
 public:
  CClient(int fd, const Movie& movie) : m_iFd(fd), m_Movie(movie) {}

  void Serve(int pictures, int rate) {
    std::string held;
    char bytes[4096];
    for (ssize_t n; (n = recv(m_iFd, bytes, sizeof bytes, 0)) > 0;) {
      held.append(bytes, static_cast<size_t>(n));
      for (size_t end; (end = held.find("\r\n\r\n")) != std::string::npos; held.erase(0, end + 4))
        if (Answer(held.substr(0, end))) return Play(pictures, rate);
    }
  }

 private:
  // True after PLAY.
  bool Answer(const std::string& request) {
    const size_t at = request.find("CSeq:");
    const std::string cseq =
        at == std::string::npos ? "" : request.substr(at, request.find('\r', at) - at) + "\r\n";
    std::string reply = "RTSP/1.0 200 OK\r\n" + cseq + "Session: 1\r\n";
    if (request.rfind("OPTIONS", 0) == 0) reply += "Public: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN\r\n";
    if (request.rfind("SETUP", 0) == 0) reply += Setup(request);
    std::string body;
    if (request.rfind("DESCRIBE", 0) == 0) {
      body = m_Movie.SDP;
      reply += "Content-Type: application/sdp\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    }
    reply += "\r\n" + body;
    send(m_iFd, reply.data(), reply.size(), MSG_NOSIGNAL);
    return request.rfind("PLAY", 0) == 0;
  }

  std::string Setup(const std::string& request) {
    const size_t at = request.find("client_port=");
    m_wClientPort =
        at == std::string::npos ? 0 : static_cast<unsigned short>(std::atoi(request.c_str() + at + 12));
    if (m_wClientPort == 0) return "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n";
    return "Transport: RTP/AVP;unicast;client_port=" + std::to_string(m_wClientPort) + "-" +
           std::to_string(m_wClientPort + 1) + ";server_port=40000-40001\r\n";
  }

  void Play(int pictures, int rate) {
    const int udp = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(m_wClientPort);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connect(udp, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (int i = 0; i < pictures; ++i) {
      if (!Send(m_Movie.Pictures[static_cast<size_t>(i) % m_Movie.Pictures.size()], static_cast<unsigned>(i),
                udp))
        break;
      if (rate == 0) continue;
      next.tv_nsec += 1000000000 / rate;
      if (next.tv_nsec >= 1000000000) ++next.tv_sec, next.tv_nsec -= 1000000000;
      clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    }
    const char bye[] = "$\1\0\10\x81\xcb\0\1\0\0\0\1";  // RTCP BYE
    if (m_wClientPort == 0) send(m_iFd, bye, 12, MSG_NOSIGNAL);
    close(udp);
  }

  bool Send(const Picture& picture, unsigned index, int udp) {
    const unsigned time = index * (CLOCK_HZ / 25);
    m_Out.clear();
    for (size_t i = 0; i < picture.size(); ++i, ++m_wSequence) {
      const std::string& packet = picture[i];
      const auto byte = [](size_t value) { return static_cast<char>(value); };
      const char head[] = {'$',
                           0,
                           byte(packet.size() >> 8),
                           byte(packet.size()),
                           byte(0x80),
                           byte((i + 1 == picture.size() ? 0x80 : 0) | 96),
                           byte(m_wSequence >> 8),
                           byte(m_wSequence),
                           byte(time >> 24),
                           byte(time >> 16),
                           byte(time >> 8),
                           byte(time),
                           0,
                           0,
                           0,
                           1};
      m_Out.append(head, sizeof head).append(packet, 12);
      if (m_wClientPort == 0) continue;
      if (send(udp, m_Out.data() + 4, m_Out.size() - 4, MSG_NOSIGNAL) < 0) return false;
      m_Out.clear();
    }
    return m_Out.empty() ||
           send(m_iFd, m_Out.data(), m_Out.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(m_Out.size());
  }

  const int m_iFd;
  const Movie& m_Movie;
  unsigned short m_wClientPort = 0, m_wSequence = 0;
  std::string m_Out;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: rtsp_feeder FILE.h264 PORT PICTURES RATE\n");
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  const std::string file{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const Movie movie(file);
  const int listener = socket(AF_INET, SOCK_STREAM, 0), one = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<unsigned short>(std::atoi(argv[2])));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (movie.Pictures.empty() ||
      bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, 4) != 0) {
    std::perror("rtsp_feeder");
    return 1;
  }
  std::printf("ready\n");
  std::fflush(stdout);
  for (int fd; (fd = accept(listener, nullptr, nullptr)) >= 0;)
    std::thread([fd, &movie, pictures = std::atoi(argv[3]), rate = std::atoi(argv[4])] {
      const int on = 1;
      setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      CClient(fd, movie).Serve(pictures, rate);
      shutdown(fd, SHUT_WR);
      for (char rest[256]; recv(fd, rest, sizeof rest, 0) > 0;) {
      }
      close(fd);
    }).detach();
  return 0;
}
