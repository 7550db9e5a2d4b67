// A server for HTTP or RTSP that follows a script, and the loopback sockets of tests.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
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

// Port 0: any that is free.
inline int BoundSocket(int type, unsigned short port) {
  const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(port);
  EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  return fd;
}

// Accepts connections one after the other and answers each request as the script says: with a text, by closing
// the connection (an empty text) or with silence (none).
class CScriptedServer {
 public:
  using Script = std::function<std::optional<std::string>(const std::string& request)>;

  explicit CScriptedServer(Script script)
      : m_Script(std::move(script)), m_iListen(BoundSocket(SOCK_STREAM, 0)) {
    listen(m_iListen, 8);
    m_Thread = std::thread([this] { Serve(); });
  }
  ~CScriptedServer() {
    shutdown(m_iListen, SHUT_RDWR);
    Hangup();
    m_Thread.join();
    close(m_iListen);
  }
  CScriptedServer(const CScriptedServer&) = delete;
  CScriptedServer& operator=(const CScriptedServer&) = delete;

  int Port() const { return BoundPort(m_iListen); }

  // All requests, once there are `count` (fewer after 20 s).
  std::vector<std::string> Requests(size_t count = 0) const {
    std::unique_lock lock(m_Mutex);
    m_Changed.wait_for(lock, std::chrono::seconds(20), [&] { return m_Requests.size() >= count; });
    return m_Requests;
  }
  std::string Request(size_t index) const {
    const std::vector<std::string> requests = Requests(index + 1);
    return index < requests.size() ? requests[index] : "(none came)";
  }

  // To the client of the moment.
  void Send(const std::string& bytes) {
    std::unique_lock lock(m_Mutex);
    m_Changed.wait_for(lock, std::chrono::seconds(20), [&] { return m_iPeer != -1; });
    const int peer = m_iPeer;
    lock.unlock();
    send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }
  void Hangup() {
    const std::lock_guard lock(m_Mutex);
    if (m_iPeer != -1) shutdown(m_iPeer, SHUT_RDWR);
    m_bEnd = true;
  }

 private:
  void Serve() {
    for (int peer; (peer = accept4(m_iListen, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
      const int one = 1;
      setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
      if (Peer(peer)) Converse(peer);
      Peer(-1);
      close(peer);
    }
  }
  // False when there is to be none any more.
  bool Peer(int peer) {
    const std::lock_guard lock(m_Mutex);
    m_iPeer = peer;
    m_Changed.notify_all();
    return !m_bEnd;
  }
  void Converse(int peer) {
    std::string held;
    char bytes[4096];
    for (ssize_t n; (n = recv(peer, bytes, sizeof bytes, 0)) > 0;) {
      held.append(bytes, static_cast<size_t>(n));
      for (size_t length; (length = RequestLength(held)) > 0; held.erase(0, length)) {
        const std::string request = held.substr(0, length);
        {
          const std::lock_guard lock(m_Mutex);
          m_Requests.push_back(request);
        }
        m_Changed.notify_all();
        const std::optional<std::string> answer = m_Script(request);
        if (answer && answer->empty()) return;
        if (answer) Send(*answer);
      }
    }
  }
  static size_t RequestLength(const std::string& text) {  // 0: not whole yet
    const size_t head = text.find("\r\n\r\n");
    if (head == text.npos) return 0;
    const size_t field = text.find("Content-Length:");
    const size_t body = field < head ? std::stoul(text.substr(field + 15)) : 0;
    return text.size() >= head + 4 + body ? head + 4 + body : 0;
  }

  const Script m_Script;
  const int m_iListen;
  mutable std::mutex m_Mutex;
  mutable std::condition_variable m_Changed;
  std::vector<std::string> m_Requests;
  int m_iPeer = -1;
  bool m_bEnd = false;
  std::thread m_Thread;
};
