// What the tests of the media model share: trees from text, items as text, a camera that is an address, a
// server that follows a script.
#pragma once

#include "host/gxmsg.h"
#include "media/media_camera.h"
#include "onvif/login_header.h"
#include "onvif/onvif_msg.h"
#include "util/gxtimer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

inline std::unique_ptr<CONVIFMsg> ParseXML(std::string text) {
  std::unique_ptr<CONVIFMsg> root(CONVIFMsg::CreateMSG(text.data(), static_cast<int>(text.size())));
  EXPECT_NE(root, nullptr) << text;
  return root;
}

inline std::unique_ptr<CONVIFMsg> ParseDataFile(const std::string& name) {
  std::ifstream file(std::string(TEST_DATA_DIR "/") + name);
  EXPECT_TRUE(file) << name;
  return ParseXML({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
}

// Items as "text|1|2".
inline std::string Dump(const CGXItems& items) {
  std::string text;
  for (const GXT_ITEM& item : items.Items()) {
    if (&item != items.Items().data()) text += '|';
    text += std::holds_alternative<int32_t>(item) ? std::to_string(std::get<int32_t>(item))
                                                  : std::get<std::string>(item);
  }
  return text;
}

template <class T>
std::string DumpMessage(const T& record) {
  CGXMSG msg;
  record.WriteTo(&msg);
  return Dump(msg.Items());
}

// A camera at one address of this machine.
class CFakeCamera : public CMediaCamera {
 public:
  explicit CFakeCamera(int port = 0) : m_Address("127.0.0.1:" + std::to_string(port)) {}
  CONVIFLoginHeader* CreateLoginHeader() override {
    return m_bLogin ? new CONVIFLoginHeader("admin", "pass", CGXTime(2026, 3, 4, 5, 6, 7), &m_Timer) : nullptr;
  }
  CGXString MediaURL() const override { return CGXString("http://" + m_Address + "/onvif/media"); }
  CGXString PTZURL() const override { return CGXString("http://" + m_Address + "/onvif/ptz"); }
  CGXString UserName() const override { return "admin"; }
  CGXString Password() const override { return "pass"; }
  CGXString StreamURL() const { return CGXString("rtsp://" + m_Address + "/live/1"); }

  bool m_bLogin = true;

 private:
  CGXTimer m_Timer;
  std::string m_Address;
};

// Accepts connections on a port of its own, one after the other, and answers each request with what the script
// gives for it; an empty answer closes the connection.
class CScriptedServer {
 public:
  using Script = std::function<std::string(const std::string& request)>;

  explicit CScriptedServer(Script script)
      : m_Script(std::move(script)), m_iListen(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const bool ok = bind(m_iListen, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                    listen(m_iListen, 8) == 0 &&
                    getsockname(m_iListen, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    EXPECT_TRUE(ok);
    m_iPort = ntohs(address.sin_port);
    m_Thread = std::thread([this] { Serve(); });
  }
  ~CScriptedServer() {
    shutdown(m_iListen, SHUT_RDWR);
    m_Thread.join();
    close(m_iListen);
  }
  CScriptedServer(const CScriptedServer&) = delete;
  CScriptedServer& operator=(const CScriptedServer&) = delete;

  int Port() const { return m_iPort; }
  std::vector<std::string> Requests() const {
    std::lock_guard lock(m_Mutex);
    return m_Requests;
  }

 private:
  void Serve() {
    for (;;) {
      const int connection = accept(m_iListen, nullptr, nullptr);
      if (connection < 0) return;
      std::string pending;
      while (Converse(connection, &pending)) {
      }
      close(connection);
    }
  }

  // One request and its answer.
  bool Converse(int connection, std::string* pending) {
    size_t length;
    while ((length = RequestLength(*pending)) == 0) {
      char buffer[4096];
      const ssize_t bytes = recv(connection, buffer, sizeof buffer, 0);
      if (bytes <= 0) return false;
      pending->append(buffer, static_cast<size_t>(bytes));
    }
    const std::string request = pending->substr(0, length);
    pending->erase(0, length);
    {
      std::lock_guard lock(m_Mutex);
      m_Requests.push_back(request);
    }
    const std::string answer = m_Script(request);
    return !answer.empty() && send(connection, answer.data(), answer.size(), MSG_NOSIGNAL) > 0;
  }

  static size_t RequestLength(const std::string& text) {  // 0: not whole yet
    const size_t head = text.find("\r\n\r\n");
    if (head == text.npos) return 0;
    const size_t field = text.find("Content-Length:");
    const size_t body = field < head ? std::stoul(text.substr(field + 15)) : 0;
    return text.size() >= head + 4 + body ? head + 4 + body : 0;
  }

  Script m_Script;
  int m_iListen, m_iPort = 0;
  mutable std::mutex m_Mutex;
  std::vector<std::string> m_Requests;
  std::thread m_Thread;
};

inline std::string HTTPAnswer(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Type: application/soap+xml\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

// A description answer as a camera sends it: CSeq as asked, base and length included.
inline std::string DescribeAnswer(const std::string& sdp, const std::string& base = "") {
  return "RTSP/1.0 200 OK\r\nCSeq: 4\r\n" + (base.empty() ? "" : "Content-Base: " + base + "\r\n") +
         "Content-Type: application/sdp\r\nContent-Length: " + std::to_string(sdp.size()) + "\r\n\r\n" + sdp;
}
