#include "sim/notifier.h"

#include "sim/services.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr char ACTION[] = "http://docs.oasis-open.org/wsn/bw-2/NotificationConsumer/Notify";
constexpr char TOPIC[] = "tns1:RuleEngine/CellMotionDetector/Motion";
constexpr char TOPIC_NAMESPACE[] = "http://www.onvif.org/ver10/topics";
constexpr char DIALECT[] = "http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet";
constexpr timeval PATIENCE{10, 0};                  // for a connection, and for an answer
constexpr size_t PIECE = 180;                       // bytes of a piece
constexpr std::chrono::milliseconds PIECE_TIME{4};  // between pieces

void AddItem(pugi::xml_node parent, const char* name, const char* value) {
  Attr(Attr(Add(parent, "tt:SimpleItem"), "Name", name), "Value", value);
}

// Caller holds the model's lock.
std::string MotionMessage(const CCameraModel& model, bool on) {
  CSOAPReply message(model.Identity.SOAPPrefix);
  Add(message.Header(), "wsa5:Action", ACTION);
  pugi::xml_node notification = Add(Add(message.Body(), "wsnt:Notify"), "wsnt:NotificationMessage");
  pugi::xml_node topic = Attr(Add(notification, "wsnt:Topic", TOPIC), "Dialect", DIALECT);
  Attr(topic, "xmlns:tns1", TOPIC_NAMESPACE);
  pugi::xml_node event = Add(Add(notification, "wsnt:Message"), "tt:Message");
  Attr(Attr(event, "UtcTime", UTCText(model.Clock())), "PropertyOperation", "Changed");
  pugi::xml_node source = Add(event, "tt:Source");
  AddItem(source, "VideoSourceConfigurationToken", "VSC_0");
  AddItem(source, "Rule", "MyMotionDetectorRule");
  AddItem(Add(event, "tt:Data"), "IsMotion", on ? "true" : "false");
  return message.ToString(model.Quirks.XMLEmpty);
}

struct CSubscriberURL {
  std::string Host, Path;
  int Port = 80;
};

// Of "http://HOST[:PORT][/PATH]"; HOST is a number.
CSubscriberURL Parse(const std::string& url) {
  const size_t from = url.find("//") + 2, slash = std::min(url.find('/', from), url.size());
  const std::string where = url.substr(from, slash - from);
  const size_t colon = where.find(':');
  CSubscriberURL target{where.substr(0, colon), slash < url.size() ? url.substr(slash) : "/"};
  if (colon != std::string::npos) target.Port = std::atoi(where.c_str() + colon + 1);
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
  const std::lock_guard guard(m_Lock);
  if (!m_BStop) return;
  m_BStop = false;
  m_Thread = std::thread([this] { Run(); });
}

void CNotifier::Stop() {
  {
    const std::lock_guard guard(m_Lock);
    m_BStop = true;
    m_Waiting.clear();
    if (m_ISocket >= 0) shutdown(m_ISocket, SHUT_RDWR);
    const std::lock_guard model(m_Model.Lock);
    m_Model.Notifications.Pending = 0;
  }
  m_Changed.notify_all();
  if (m_Thread.joinable()) m_Thread.join();
}

void CNotifier::PushMotion(bool on, int times) {
  {
    const std::lock_guard guard(m_Lock);
    if (!m_BStop) m_Waiting.insert(m_Waiting.end(), static_cast<size_t>(times), on);
    const std::lock_guard model(m_Model.Lock);
    m_Model.Motion = on;
    m_Model.Notifications.Pending = static_cast<int>(m_Waiting.size());
  }
  m_Changed.notify_all();
}

void CNotifier::Run() {
  for (;;) {
    bool on = false;
    {
      std::unique_lock guard(m_Lock);
      m_Changed.wait(guard, [this] { return m_BStop || !m_Waiting.empty(); });
      if (m_BStop) return;
      on = m_Waiting.front();
    }
    std::vector<std::string> consumers;
    std::string body;
    {
      const std::lock_guard guard(m_Model.Lock);
      m_Model.DropLapsed();
      for (const CSubscription& s : m_Model.Subscriptions) consumers.push_back(s.Consumer);
      body = MotionMessage(m_Model, on);
    }
    for (const std::string& consumer : consumers) Send(consumer, body);
    const std::lock_guard guard(m_Lock);
    if (m_BStop) return;
    m_Waiting.pop_front();
    const std::lock_guard model(m_Model.Lock);
    m_Model.Notifications.Pending = static_cast<int>(m_Waiting.size());
  }
}

// A connected socket, known to Stop(), or -1.
int CNotifier::Connect(const std::string& host, int port) {
  std::string ownAddress;
  {
    const std::lock_guard guard(m_Model.Lock);
    ownAddress = m_Model.Address;
  }
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  {
    const std::lock_guard guard(m_Lock);
    if (m_BStop) return close(fd), -1;
    m_ISocket = fd;
  }
  const int on = 1;
  setsockopt(fd, SOL_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &PATIENCE, sizeof PATIENCE);
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof PATIENCE);
  const sockaddr_in from = Address(ownAddress, 0), to = Address(host, port);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof from) == 0 &&
      connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0)
    return fd;
  const std::lock_guard guard(m_Lock);
  m_ISocket = -1;
  close(fd);
  return -1;
}

void CNotifier::Send(const std::string& consumer, const std::string& body) {
  const CSubscriberURL target = Parse(consumer);
  const int fd = Connect(target.Host, target.Port);
  if (fd < 0) {
    const std::lock_guard guard(m_Model.Lock);
    ++m_Model.Notifications.Failed;
    return;
  }
  SendOver(fd,
           "POST " + target.Path + " HTTP/1.1\r\nHost: " + target.Host + ":" + std::to_string(target.Port) +
               "\r\nUser-Agent: camsim\r\nContent-Type: application/soap+xml; charset=utf-8; action=\"" +
               ACTION + "\"\r\nConnection: close\r\n",
           body);
  const std::lock_guard guard(m_Lock);
  m_ISocket = -1;
  close(fd);
}

void CNotifier::SendOver(int socket, const std::string& head, const std::string& body) {
  std::string manner;
  {
    const std::lock_guard guard(m_Model.Lock);
    manner = m_Model.Quirks.Notify;
  }
  const bool length = manner != "no_length";
  const std::string all =
      head + (length ? "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" : "\r\n") + body;
  bool sent = manner == "pieces" ? Pieces(socket, all) : SendAll(socket, all);
  if (!length) sent = shutdown(socket, SHUT_WR) == 0 && sent;  // its end is all that tells the length
  const bool accepted = sent && Answer(socket).starts_with("HTTP/1.1 202");
  const std::lock_guard guard(m_Model.Lock);
  ++(sent ? m_Model.Notifications.Sent : m_Model.Notifications.Failed);
  if (accepted) ++m_Model.Notifications.Accepted;
}

bool CNotifier::Pieces(int socket, const std::string& bytes) {
  for (size_t at = 0; at < bytes.size(); at += PIECE) {
    if (!SendAll(socket, bytes.substr(at, PIECE))) return false;
    std::unique_lock guard(m_Lock);
    if (m_Changed.wait_for(guard, PIECE_TIME, [this] { return m_BStop; })) return false;
  }
  return true;
}
