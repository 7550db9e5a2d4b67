#include "sim/notifier.h"

#include "sim/services.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr char kAction[] = "http://docs.oasis-open.org/wsn/bw-2/NotificationConsumer/Notify";
constexpr char kTopic[] = "tns1:RuleEngine/CellMotionDetector/Motion";
constexpr char kTopicNamespace[] = "http://www.onvif.org/ver10/topics";
constexpr char kDialect[] = "http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet";
constexpr timeval kPatience{10, 0};                 // for a connection, and for an answer
constexpr size_t kPiece = 180;                      // bytes of a piece
constexpr std::chrono::milliseconds kPieceTime{4};  // between pieces

void AddItem(pugi::xml_node parent, const char* name, const char* value) {
  Attr(Attr(Add(parent, "tt:SimpleItem"), "Name", name), "Value", value);
}

// Caller holds the model's lock.
std::string MotionMessage(const CCameraModel& model, bool on) {
  CSoapReply message(model.identity.soapPrefix);
  Add(message.Header(), "wsa5:Action", kAction);
  pugi::xml_node notification = Add(Add(message.Body(), "wsnt:Notify"), "wsnt:NotificationMessage");
  pugi::xml_node topic = Attr(Add(notification, "wsnt:Topic", kTopic), "Dialect", kDialect);
  Attr(topic, "xmlns:tns1", kTopicNamespace);
  pugi::xml_node event = Add(Add(notification, "wsnt:Message"), "tt:Message");
  Attr(Attr(event, "UtcTime", UtcText(model.Clock())), "PropertyOperation", "Changed");
  pugi::xml_node source = Add(event, "tt:Source");
  AddItem(source, "VideoSourceConfigurationToken", "VSC_0");
  AddItem(source, "Rule", "MyMotionDetectorRule");
  AddItem(Add(event, "tt:Data"), "IsMotion", on ? "true" : "false");
  return message.ToString(model.quirks.xmlEmpty);
}

struct CTarget {
  std::string host, path;
  int port = 80;
};

// Of "http://HOST[:PORT][/PATH]"; HOST is a number.
CTarget Parse(const std::string& url) {
  const size_t from = url.find("//") + 2, slash = std::min(url.find('/', from), url.size());
  const std::string where = url.substr(from, slash - from);
  const size_t colon = where.find(':');
  CTarget target{where.substr(0, colon), slash < url.size() ? url.substr(slash) : "/"};
  if (colon != std::string::npos) target.port = std::atoi(where.c_str() + colon + 1);
  return target;
}

sockaddr_in Address(const std::string& host, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, host.c_str(), &address.sin_addr);
  return address;
}

bool SendAll(int socket, const std::string& bytes) {
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t n = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

// The status line and headers of the answer; less when the peer closes before.
std::string Answer(int socket) {
  std::string answer;
  char buffer[512];
  while (answer.find("\r\n\r\n") == std::string::npos) {
    const ssize_t n = recv(socket, buffer, sizeof buffer, 0);
    if (n <= 0) break;
    answer.append(buffer, static_cast<size_t>(n));
  }
  return answer;
}

}  // namespace

void CNotifier::Start() {
  const std::lock_guard guard(m_lock);
  if (!m_stop) return;
  m_stop = false;
  m_thread = std::thread([this] { Run(); });
}

void CNotifier::Stop() {
  {
    const std::lock_guard guard(m_lock);
    m_stop = true;
    m_waiting.clear();
    if (m_socket >= 0) shutdown(m_socket, SHUT_RDWR);
    const std::lock_guard model(m_model.lock);
    m_model.notifications.pending = 0;
  }
  m_changed.notify_all();
  if (m_thread.joinable()) m_thread.join();
}

void CNotifier::PushMotion(bool on, int times) {
  {
    const std::lock_guard guard(m_lock);
    if (!m_stop) m_waiting.insert(m_waiting.end(), static_cast<size_t>(times), on);
    const std::lock_guard model(m_model.lock);
    m_model.motion = on;
    m_model.notifications.pending = static_cast<int>(m_waiting.size());
  }
  m_changed.notify_all();
}

void CNotifier::Run() {
  for (;;) {
    bool on = false;
    {
      std::unique_lock guard(m_lock);
      m_changed.wait(guard, [this] { return m_stop || !m_waiting.empty(); });
      if (m_stop) return;
      on = m_waiting.front();
    }
    std::vector<std::string> consumers;
    std::string body;
    {
      const std::lock_guard guard(m_model.lock);
      m_model.DropLapsed();
      for (const CSubscription& s : m_model.subscriptions) consumers.push_back(s.consumer);
      body = MotionMessage(m_model, on);
    }
    for (const std::string& consumer : consumers) Send(consumer, body);
    const std::lock_guard guard(m_lock);
    if (m_stop) return;
    m_waiting.pop_front();
    const std::lock_guard model(m_model.lock);
    m_model.notifications.pending = static_cast<int>(m_waiting.size());
  }
}

// A connected socket, known to Stop(), or -1.
int CNotifier::Connect(const std::string& host, int port) {
  std::string ownAddress;
  {
    const std::lock_guard guard(m_model.lock);
    ownAddress = m_model.address;
  }
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  {
    const std::lock_guard guard(m_lock);
    if (m_stop) return close(fd), -1;
    m_socket = fd;
  }
  const int on = 1;
  setsockopt(fd, SOL_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
  const sockaddr_in from = Address(ownAddress, 0), to = Address(host, port);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof from) == 0 &&
      connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0)
    return fd;
  const std::lock_guard guard(m_lock);
  m_socket = -1;
  close(fd);
  return -1;
}

void CNotifier::Send(const std::string& consumer, const std::string& body) {
  const CTarget target = Parse(consumer);
  const int fd = Connect(target.host, target.port);
  if (fd < 0) {
    const std::lock_guard guard(m_model.lock);
    ++m_model.notifications.failed;
    return;
  }
  SendOver(fd,
           "POST " + target.path + " HTTP/1.1\r\nHost: " + target.host + ":" + std::to_string(target.port) +
               "\r\nUser-Agent: camsim\r\nContent-Type: application/soap+xml; charset=utf-8; action=\"" +
               kAction + "\"\r\nConnection: close\r\n",
           body);
  const std::lock_guard guard(m_lock);
  m_socket = -1;
  close(fd);
}

void CNotifier::SendOver(int socket, const std::string& head, const std::string& body) {
  std::string manner;
  {
    const std::lock_guard guard(m_model.lock);
    manner = m_model.quirks.notify;
  }
  const bool length = manner != "no_length";
  const std::string all =
      head + (length ? "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" : "\r\n") + body;
  bool sent = manner == "pieces" ? Pieces(socket, all) : SendAll(socket, all);
  if (!length) sent = shutdown(socket, SHUT_WR) == 0 && sent;  // its end is all that tells the length
  const bool accepted = sent && Answer(socket).starts_with("HTTP/1.1 202");
  const std::lock_guard guard(m_model.lock);
  ++(sent ? m_model.notifications.sent : m_model.notifications.failed);
  if (accepted) ++m_model.notifications.accepted;
}

bool CNotifier::Pieces(int socket, const std::string& bytes) {
  for (size_t at = 0; at < bytes.size(); at += kPiece) {
    if (!SendAll(socket, bytes.substr(at, kPiece))) return false;
    std::unique_lock guard(m_lock);
    if (m_changed.wait_for(guard, kPieceTime, [this] { return m_stop; })) return false;
  }
  return true;
}
