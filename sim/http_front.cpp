#include "sim/http_front.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace {

constexpr size_t MAX_HEAD = 65536, MAX_BODY = 1 << 20;
constexpr size_t SEGMENT = 700;    // bytes of one segment of a slow body
constexpr size_t CHUNK = 1000;     // bytes of one chunk
constexpr int IDLE_MS = 30000;     // an open connection without a request ends after this
constexpr int WRONG_LENGTH = 137;  // by how much a wrong Content-Length is off

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

const char* Reason(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 404:
      return "Not Found";
    default:
      return "Internal Server Error";
  }
}

void ParseHead(const std::string& head, CHTTPRequest* request) {
  std::istringstream lines(head);
  std::string line;
  std::getline(lines, line);
  std::istringstream(line) >> request->Method >> request->Path;
  while (std::getline(lines, line)) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    const size_t from = line.find_first_not_of(" \t", colon + 1);
    const size_t to = line.find_last_not_of(" \t\r");
    if (from != std::string::npos)
      request->Headers[Lower(line.substr(0, colon))] = line.substr(from, to - from + 1);
  }
}

std::string Chunked(const std::string& body) {
  std::ostringstream out;
  for (size_t at = 0; at < body.size(); at += CHUNK) {
    const std::string piece = body.substr(at, CHUNK);
    out << std::hex << piece.size() << "\r\n" << piece << "\r\n";
  }
  out << "0\r\n\r\n";
  return out.str();
}

// The length that the header announces; -1: none.
long AnnouncedLength(const CHTTPManner& manner, size_t size) {
  const long length = static_cast<long>(size);
  if (manner.Mode == "chunked" || manner.Mode == "until_close") return -1;
  if (manner.Mode == "short_length") return std::max(0L, length - WRONG_LENGTH);
  if (manner.Mode == "long_length") return length + WRONG_LENGTH;
  return length;
}

}  // namespace

std::string CHTTPRequest::Header(const std::string& lowerName) const {
  const auto found = Headers.find(lowerName);
  return found == Headers.end() ? "" : found->second;
}

int ListenAt(const std::string& address, int port, std::string* error) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, address.c_str(), &own.sin_addr);
  if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&own), sizeof own) == 0 && listen(fd, SOMAXCONN) == 0)
    return fd;
  *error = "cannot listen on " + address + ":" + std::to_string(port) + ": " + std::strerror(errno);
  if (fd >= 0) close(fd);
  return -1;
}

bool CHTTPFront::Start(const std::string& address, int port, std::string* error) {
  m_IListener = ListenAt(address, port, error);
  if (m_IListener < 0) return false;
  m_BStop = false;
  m_Accepter = std::thread([this] { Accept(); });
  return true;
}

void CHTTPFront::Stop() {
  if (m_IListener < 0) return;
  {
    const std::lock_guard guard(m_Lock);
    m_BStop = true;
    for (const CConnection& connection : m_Connections)
      if (!connection.Done) shutdown(connection.Socket, SHUT_RDWR);
  }
  m_Stopped.notify_all();
  shutdown(m_IListener, SHUT_RDWR);
  m_Accepter.join();
  close(m_IListener);
  m_IListener = -1;
  Reap(true);
}

void CHTTPFront::Reap(bool all) {
  std::list<CConnection> ended;
  {
    const std::lock_guard guard(m_Lock);
    for (auto it = m_Connections.begin(); it != m_Connections.end();) {
      const auto next = std::next(it);
      if (all || it->Done) ended.splice(ended.end(), m_Connections, it);
      it = next;
    }
  }
  for (CConnection& connection : ended) connection.Thread.join();
}

void CHTTPFront::Accept() {
  for (;;) {
    const int fd = accept4(m_IListener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0 && (errno == EINTR || errno == ECONNABORTED)) continue;
    if (fd < 0) return;
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    Reap(false);
    const std::lock_guard guard(m_Lock);
    if (m_BStop) {
      close(fd);
      return;
    }
    CConnection& connection = m_Connections.emplace_back();
    connection.Socket = fd;
    connection.Thread = std::thread([this, &connection] {
      Serve(connection.Socket);
      const std::lock_guard inner(m_Lock);
      close(connection.Socket);
      connection.Done = true;
    });
  }
}

void CHTTPFront::Serve(int socket) {
  std::string pending;
  while (ServeOne(socket, &pending)) {
  }
}

bool CHTTPFront::ServeOne(int socket, std::string* pending) {
  CHTTPRequest request;
  if (!ReadRequest(socket, pending, &request)) return false;
  const CHTTPManner manner = m_Manner();
  if (manner.Mode == "silence") return WaitForEnd(socket), false;
  if (manner.Mode == "drop") return false;
  const CHTTPReply reply = m_Handler(request);
  const bool close = Lower(request.Header("connection")) == "close" || manner.Mode == "until_close";
  if (!SendReply(socket, reply, manner, close)) return false;
  return !close || (manner.KeepOpen && manner.Mode != "until_close");
}

void CHTTPFront::WaitForEnd(int socket) {
  char byte[256];
  while (recv(socket, byte, sizeof byte, 0) > 0) {
  }
}

bool CHTTPFront::Receive(int socket, std::string* pending) {
  pollfd ready{socket, POLLIN, 0};
  if (poll(&ready, 1, IDLE_MS) <= 0) return false;
  char buffer[4096];
  const ssize_t n = recv(socket, buffer, sizeof buffer, 0);
  if (n <= 0) return false;
  pending->append(buffer, static_cast<size_t>(n));
  return true;
}

bool CHTTPFront::ReadRequest(int socket, std::string* pending, CHTTPRequest* request) {
  size_t end;
  while ((end = pending->find("\r\n\r\n")) == std::string::npos)
    if (pending->size() > MAX_HEAD || !Receive(socket, pending)) return false;
  ParseHead(pending->substr(0, end), request);
  pending->erase(0, end + 4);
  const size_t length = std::strtoul(request->Header("content-length").c_str(), nullptr, 10);
  if (length > MAX_BODY) return false;
  if (Lower(request->Header("expect")) == "100-continue" && !Send(socket, "HTTP/1.1 100 Continue\r\n\r\n"))
    return false;
  while (pending->size() < length)
    if (!Receive(socket, pending)) return false;
  request->Body = pending->substr(0, length);
  pending->erase(0, length);
  return true;
}

bool CHTTPFront::Send(int socket, const std::string& bytes) {
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t n = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

bool CHTTPFront::SendPaced(int socket, const std::string& bytes, size_t piece, int pauseMs) {
  for (size_t at = 0; at < bytes.size(); at += piece) {
    if (at > 0 && !Pause(pauseMs)) return false;
    if (!Send(socket, bytes.substr(at, piece))) return false;
  }
  return true;
}

bool CHTTPFront::Pause(int ms) {
  std::unique_lock guard(m_Lock);
  return !m_Stopped.wait_for(guard, std::chrono::milliseconds(ms), [this] { return m_BStop; });
}

bool CHTTPFront::SendReply(int socket, const CHTTPReply& reply, const CHTTPManner& manner, bool close) {
  std::ostringstream head;
  if (manner.ContinueFirst) head << "HTTP/1.1 100 Continue\r\n\r\n";
  head << "HTTP/1.1 " << reply.Status << ' ' << Reason(reply.Status) << "\r\nServer: camsim\r\n"
       << "Content-Type: " << reply.ContentType << "\r\n"
       << reply.ExtraHeaders;
  const long length = AnnouncedLength(manner, reply.Body.size());
  if (length >= 0) head << "Content-Length: " << length << "\r\n";
  if (manner.Mode == "chunked") head << "Transfer-Encoding: chunked\r\n";
  head << (close && !manner.KeepOpen ? "Connection: close\r\n\r\n" : "Connection: keep-alive\r\n\r\n");
  const std::string body = manner.Mode == "chunked" ? Chunked(reply.Body) : reply.Body;
  if (manner.Mode == "trickle") return SendPaced(socket, head.str() + body, 1, 1000);
  if (manner.Mode == "drop_half") return Send(socket, head.str() + body.substr(0, body.size() / 2)), false;
  if (manner.SegmentMs > 0)
    return Send(socket, head.str()) && SendPaced(socket, body, SEGMENT, manner.SegmentMs);
  return Send(socket, head.str() + body);
}
