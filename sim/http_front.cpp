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

constexpr size_t kMaxHead = 65536, kMaxBody = 1 << 20;
constexpr size_t kSegment = 700;   // bytes of one segment of a slow body
constexpr size_t kChunk = 1000;    // bytes of one chunk
constexpr int kIdleMs = 30000;     // an open connection without a request ends after this
constexpr int kWrongLength = 137;  // by how much a wrong Content-Length is off

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

void ParseHead(const std::string& head, CHttpRequest* request) {
  std::istringstream lines(head);
  std::string line;
  std::getline(lines, line);
  std::istringstream(line) >> request->method >> request->path;
  while (std::getline(lines, line)) {
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    const size_t from = line.find_first_not_of(" \t", colon + 1);
    const size_t to = line.find_last_not_of(" \t\r");
    if (from != std::string::npos)
      request->headers[Lower(line.substr(0, colon))] = line.substr(from, to - from + 1);
  }
}

std::string Chunked(const std::string& body) {
  std::ostringstream out;
  for (size_t at = 0; at < body.size(); at += kChunk) {
    const std::string piece = body.substr(at, kChunk);
    out << std::hex << piece.size() << "\r\n" << piece << "\r\n";
  }
  out << "0\r\n\r\n";
  return out.str();
}

// The length that the header announces; -1: none.
long AnnouncedLength(const CHttpManner& manner, size_t size) {
  const long length = static_cast<long>(size);
  if (manner.mode == "chunked" || manner.mode == "until_close") return -1;
  if (manner.mode == "short_length") return std::max(0L, length - kWrongLength);
  if (manner.mode == "long_length") return length + kWrongLength;
  return length;
}

}  // namespace

std::string CHttpRequest::Header(const std::string& lowerName) const {
  const auto found = headers.find(lowerName);
  return found == headers.end() ? "" : found->second;
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

bool CHttpFront::Start(const std::string& address, int port, std::string* error) {
  m_listener = ListenAt(address, port, error);
  if (m_listener < 0) return false;
  m_stop = false;
  m_accepter = std::thread([this] { Accept(); });
  return true;
}

void CHttpFront::Stop() {
  if (m_listener < 0) return;
  {
    const std::lock_guard guard(m_lock);
    m_stop = true;
    for (const CConnection& connection : m_connections)
      if (!connection.done) shutdown(connection.socket, SHUT_RDWR);
  }
  m_stopped.notify_all();
  shutdown(m_listener, SHUT_RDWR);
  m_accepter.join();
  close(m_listener);
  m_listener = -1;
  Reap(true);
}

void CHttpFront::Reap(bool all) {
  std::list<CConnection> ended;
  {
    const std::lock_guard guard(m_lock);
    for (auto it = m_connections.begin(); it != m_connections.end();) {
      const auto next = std::next(it);
      if (all || it->done) ended.splice(ended.end(), m_connections, it);
      it = next;
    }
  }
  for (CConnection& connection : ended) connection.thread.join();
}

void CHttpFront::Accept() {
  for (;;) {
    const int fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0 && (errno == EINTR || errno == ECONNABORTED)) continue;
    if (fd < 0) return;
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    Reap(false);
    const std::lock_guard guard(m_lock);
    if (m_stop) {
      close(fd);
      return;
    }
    CConnection& connection = m_connections.emplace_back();
    connection.socket = fd;
    connection.thread = std::thread([this, &connection] {
      Serve(connection.socket);
      const std::lock_guard inner(m_lock);
      close(connection.socket);
      connection.done = true;
    });
  }
}

void CHttpFront::Serve(int socket) {
  std::string pending;
  while (ServeOne(socket, &pending)) {
  }
}

bool CHttpFront::ServeOne(int socket, std::string* pending) {
  CHttpRequest request;
  if (!ReadRequest(socket, pending, &request)) return false;
  const CHttpManner manner = m_manner();
  if (manner.mode == "silence") return WaitForEnd(socket), false;
  if (manner.mode == "drop") return false;
  const CHttpReply reply = m_handler(request);
  const bool close = Lower(request.Header("connection")) == "close" || manner.mode == "until_close";
  if (!SendReply(socket, reply, manner, close)) return false;
  return !close || (manner.keepOpen && manner.mode != "until_close");
}

void CHttpFront::WaitForEnd(int socket) {
  char byte[256];
  while (recv(socket, byte, sizeof byte, 0) > 0) {
  }
}

bool CHttpFront::Receive(int socket, std::string* pending) {
  pollfd ready{socket, POLLIN, 0};
  if (poll(&ready, 1, kIdleMs) <= 0) return false;
  char buffer[4096];
  const ssize_t n = recv(socket, buffer, sizeof buffer, 0);
  if (n <= 0) return false;
  pending->append(buffer, static_cast<size_t>(n));
  return true;
}

bool CHttpFront::ReadRequest(int socket, std::string* pending, CHttpRequest* request) {
  size_t end;
  while ((end = pending->find("\r\n\r\n")) == std::string::npos)
    if (pending->size() > kMaxHead || !Receive(socket, pending)) return false;
  ParseHead(pending->substr(0, end), request);
  pending->erase(0, end + 4);
  const size_t length = std::strtoul(request->Header("content-length").c_str(), nullptr, 10);
  if (length > kMaxBody) return false;
  if (Lower(request->Header("expect")) == "100-continue" && !Send(socket, "HTTP/1.1 100 Continue\r\n\r\n"))
    return false;
  while (pending->size() < length)
    if (!Receive(socket, pending)) return false;
  request->body = pending->substr(0, length);
  pending->erase(0, length);
  return true;
}

bool CHttpFront::Send(int socket, const std::string& bytes) {
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t n = send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

bool CHttpFront::SendPaced(int socket, const std::string& bytes, size_t piece, int pauseMs) {
  for (size_t at = 0; at < bytes.size(); at += piece) {
    if (at > 0 && !Pause(pauseMs)) return false;
    if (!Send(socket, bytes.substr(at, piece))) return false;
  }
  return true;
}

bool CHttpFront::Pause(int ms) {
  std::unique_lock guard(m_lock);
  return !m_stopped.wait_for(guard, std::chrono::milliseconds(ms), [this] { return m_stop; });
}

bool CHttpFront::SendReply(int socket, const CHttpReply& reply, const CHttpManner& manner, bool close) {
  std::ostringstream head;
  if (manner.continueFirst) head << "HTTP/1.1 100 Continue\r\n\r\n";
  head << "HTTP/1.1 " << reply.status << ' ' << Reason(reply.status) << "\r\nServer: camsim\r\n"
       << "Content-Type: " << reply.contentType << "\r\n"
       << reply.extraHeaders;
  const long length = AnnouncedLength(manner, reply.body.size());
  if (length >= 0) head << "Content-Length: " << length << "\r\n";
  if (manner.mode == "chunked") head << "Transfer-Encoding: chunked\r\n";
  head << (close && !manner.keepOpen ? "Connection: close\r\n\r\n" : "Connection: keep-alive\r\n\r\n");
  const std::string body = manner.mode == "chunked" ? Chunked(reply.body) : reply.body;
  if (manner.mode == "trickle") return SendPaced(socket, head.str() + body, 1, 1000);
  if (manner.mode == "drop_half") return Send(socket, head.str() + body.substr(0, body.size() / 2)), false;
  if (manner.segmentMs > 0)
    return Send(socket, head.str()) && SendPaced(socket, body, kSegment, manner.segmentMs);
  return Send(socket, head.str() + body);
}
