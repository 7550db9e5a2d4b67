// A camera's RTSP side with a script, and packets to feed to a session.
#pragma once

#include "host/rtsp_profile.h"
#include "rtsp/rtsp.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

inline sockaddr_in Loopback(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

inline unsigned short BoundPort(int fd) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

inline int BoundSocket(int type, unsigned short port) {
  const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(port);
  EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  return fd;
}

// Answers the n-th request with the n-th reply (empty: silence), keeps every request, then only listens.
class CScriptedServer {
 public:
  explicit CScriptedServer(std::vector<std::string> replies, size_t pieceBytes = 0)
      : m_Replies(std::move(replies)), m_iPiece(pieceBytes), m_iListen(BoundSocket(SOCK_STREAM, 0)) {
    listen(m_iListen, 1);
    m_Thread = std::thread([this] { Serve(); });
  }
  ~CScriptedServer() {
    shutdown(m_iListen, SHUT_RDWR);
    Hangup();
    m_Thread.join();
    close(m_iListen);
  }

  std::string URL(const std::string& path = "/live") const {
    return "rtsp://127.0.0.1:" + std::to_string(BoundPort(m_iListen)) + path;
  }

  // The first `count` requests, once they have come (fewer after 5 s).
  std::vector<std::string> Requests(size_t count) {
    std::unique_lock lock(m_Mutex);
    m_Changed.wait_for(lock, std::chrono::seconds(5), [&] { return m_Requests.size() >= count; });
    return m_Requests;
  }
  std::string Request(size_t index) {
    const std::vector<std::string> requests = Requests(index + 1);
    return index < requests.size() ? requests[index] : "(none came)";
  }

  void Send(const std::string& bytes) {
    int fd;
    {
      std::unique_lock lock(m_Mutex);
      m_Changed.wait_for(lock, std::chrono::seconds(5), [&] { return m_iPeer != -1; });
      fd = m_iPeer;
    }
    const size_t piece = m_iPiece > 0 ? m_iPiece : bytes.size();
    for (size_t at = 0; at < bytes.size(); at += piece)
      send(fd, bytes.data() + at, std::min(piece, bytes.size() - at), MSG_NOSIGNAL);
  }
  void Hangup() {
    const std::lock_guard lock(m_Mutex);
    if (m_iPeer != -1) shutdown(m_iPeer, SHUT_RDWR);
  }

 private:
  void Serve() {
    const int peer = accept4(m_iListen, nullptr, nullptr, SOCK_CLOEXEC);
    if (peer < 0) return;
    const int one = 1;
    setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    {
      const std::lock_guard lock(m_Mutex);
      m_iPeer = peer;
    }
    m_Changed.notify_all();
    std::string held;
    char bytes[2048];
    for (ssize_t n; (n = recv(peer, bytes, sizeof bytes, 0)) > 0;) {
      held.append(bytes, static_cast<size_t>(n));
      for (size_t end; (end = held.find("\r\n\r\n")) != std::string::npos; held.erase(0, end + 4))
        Answer(held.substr(0, end + 4));
    }
    const std::lock_guard lock(m_Mutex);
    m_iPeer = -1;
    close(peer);
  }
  void Answer(const std::string& request) {
    size_t index;
    {
      const std::lock_guard lock(m_Mutex);
      index = m_Requests.size();
      m_Requests.push_back(request);
    }
    m_Changed.notify_all();
    if (index < m_Replies.size()) Send(m_Replies[index]);
  }

  const std::vector<std::string> m_Replies;
  const size_t m_iPiece;
  const int m_iListen;
  std::mutex m_Mutex;
  std::condition_variable m_Changed;
  std::vector<std::string> m_Requests;
  int m_iPeer = -1;
  std::thread m_Thread;
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
  CSession(const CScriptedServer& server, RTP_TRANSPORT transport, const char* user = "",
           const char* password = "")
      : RTSP(server.URL().c_str(), server.URL("/live/track1").c_str(), transport, user, password, -1, nullptr,
             nullptr) {
    Profile.ControlURL(server.URL("/live/track1").c_str());
  }
  bool Play() { return RTSP.Login() && RTSP.Init(&Profile) && RTSP.InitSession(); }

  // The next packet's bytes; empty when there was none.
  std::string Next(int timeoutMs = 2000, int size = 2048) {
    std::string packet(static_cast<size_t>(size), 0);
    const int length = RTSP.WaitNextPacket(reinterpret_cast<unsigned char*>(packet.data()), size, timeoutMs);
    packet.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return packet;
  }

  CRTSPProfile Profile;
  CRTSP RTSP;
};
