#include "controller/core/command_socket.h"

#include "controller/core/stop_signal.h"
#include "controller/site/site_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

using Clock = std::chrono::steady_clock;

namespace {

constexpr char SUFFIX[] = ".control";
constexpr unsigned SOCKET_MODE = 0600;
constexpr int BACKLOG = 128;
constexpr size_t MOST_ANSWER_BYTES = 64 * 1024 * 1024;

// A socket's address holds 107 characters. The folder is given by an open descriptor, so only the file's name
// has to fit.
class CSocketAddress {
 public:
  explicit CSocketAddress(const std::string& path) {
    const std::filesystem::path file(path);
    const std::string folder = file.parent_path().string();
    m_iFolder = open(folder.empty() ? "." : folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    const std::string name = "/proc/self/fd/" + std::to_string(m_iFolder) + "/" + file.filename().string();
    m_Address.sun_family = AF_UNIX;
    m_bFits = m_iFolder >= 0 && name.size() < sizeof m_Address.sun_path;
    if (m_iFolder >= 0 && !m_bFits) errno = ENAMETOOLONG;
    if (m_bFits) std::memcpy(m_Address.sun_path, name.c_str(), name.size() + 1);
  }
  ~CSocketAddress() {
    if (m_iFolder >= 0) close(m_iFolder);
  }
  CSocketAddress(const CSocketAddress&) = delete;
  CSocketAddress& operator=(const CSocketAddress&) = delete;

  bool Good() const { return m_bFits; }  // else errno tells
  const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&m_Address); }
  static constexpr socklen_t LENGTH = sizeof(sockaddr_un);

 private:
  sockaddr_un m_Address{};
  int m_iFolder;
  bool m_bFits;
};

bool WouldBlock() {
  return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

}  // namespace

std::string CommandSocketPath(const std::string& siteFile) {
  return CSiteFile(siteFile).Path() + SUFFIX;
}

CCommandSocket::~CCommandSocket() {
  for (const Client& client : m_Clients) close(client.Socket);
  if (m_iListener < 0) return;
  close(m_iListener);
  unlink(m_Path.c_str());
}

bool CCommandSocket::Listen(const std::string& path, std::string* error) {
  const CSocketAddress address(path);
  const int listener = address.Good() ? socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0) : -1;
  if (listener >= 0) unlink(path.c_str());
  // The file is made with the socket's own mode, so it is never open to others, not even for a moment.
  if (listener < 0 || fchmod(listener, SOCKET_MODE) != 0 ||
      bind(listener, address.Get(), CSocketAddress::LENGTH) != 0 || listen(listener, BACKLOG) != 0) {
    *error = path + ": " + std::strerror(errno);
    if (listener >= 0) close(listener);
    return false;
  }
  m_Path = path;
  m_iListener = listener;
  return true;
}

void CCommandSocket::Pass() {
  Accept();
  for (auto client = m_Clients.begin(); client != m_Clients.end();) {
    if (Serve(&*client)) {
      ++client;
    } else {
      close(client->Socket);
      client = m_Clients.erase(client);
    }
  }
}

void CCommandSocket::Accept() {
  for (size_t i = 0; i < MOST_CLIENTS; ++i) {
    pollfd waiting{m_iListener, POLLIN, 0};
    if (m_Clients.size() >= MOST_CLIENTS && (poll(&waiting, 1, 0) <= 0 || !DropSilentOne())) return;
    const int socket = accept4(m_iListener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (socket < 0) return;
    m_Clients.push_back({socket, {}, {}, nullptr, Clock::now() + IDLE});
  }
}

// Who has been there longest and has not asked for anything yet.
bool CCommandSocket::DropSilentOne() {
  const auto silent = std::ranges::find_if(
      m_Clients, [](const Client& client) { return !client.Pending && client.Reply.empty(); });
  if (silent == m_Clients.end()) return false;
  close(silent->Socket);
  m_Clients.erase(silent);
  return true;
}

bool CCommandSocket::Serve(Client* client) {
  if (!client->Pending && client->Reply.empty()) {
    if (!Receive(client)) return false;
    if (!client->Pending) return Clock::now() < client->Until;
  }
  if (client->Reply.empty()) {
    pollfd gone{client->Socket, 0, 0};  // tells of a hang-up all the same
    if (poll(&gone, 1, 0) > 0) return false;
    client->Reply = client->Pending();
    if (client->Reply.empty()) return true;
    client->Reply += '\n';
    client->Until = Clock::now() + IDLE;
  }
  return Send(client) && Clock::now() < client->Until;
}

bool CCommandSocket::Receive(Client* client) {
  char bytes[4096];
  const ssize_t n = recv(client->Socket, bytes, sizeof bytes, 0);
  if (n <= 0) return n < 0 && WouldBlock();
  client->Request.append(bytes, static_cast<size_t>(n));
  const size_t end = client->Request.find('\n');
  if (end != std::string::npos) client->Pending = m_Handler(client->Request.substr(0, end));
  return client->Request.size() <= MOST_REQUEST_BYTES;
}

bool CCommandSocket::Send(Client* client) {
  const ssize_t n = send(client->Socket, client->Reply.data(), client->Reply.size(), MSG_NOSIGNAL);
  if (n < 0) return WouldBlock();
  client->Reply.erase(0, static_cast<size_t>(n));
  return !client->Reply.empty();
}

bool AskController(const std::string& path, const std::string& request, int seconds, std::string* answer,
                   std::string* error) {
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  const CSocketAddress address(path);
  const int socket = address.Good() ? ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0) : -1;
  const auto fail = [&](const std::string& why) {
    *error = why;
    if (socket >= 0) close(socket);
    return false;
  };
  if (socket < 0 || connect(socket, address.Get(), CSocketAddress::LENGTH) != 0) {
    if (errno == ENOENT || errno == ECONNREFUSED) return fail("no controller runs there");
    return fail(std::strerror(errno));
  }
  const std::string line = request + "\n";
  if (send(socket, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size()))
    return fail("the controller takes no request");
  answer->clear();
  while (answer->size() < MOST_ANSWER_BYTES) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd wait[] = {{socket, POLLIN, 0}, {StopDescriptor(), POLLIN, 0}};
    const int ready = left > 0 ? poll(wait, 2, static_cast<int>(left)) : 0;
    if (ready == 0) return fail("the controller gives no answer");
    if (ready < 0) continue;  // a signal: a stop signal makes its descriptor readable
    if (wait[1].revents != 0) return fail("broken off");
    char bytes[65536];
    const ssize_t n = recv(socket, bytes, sizeof bytes, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return fail("the controller has ended without an answer");
    answer->append(bytes, static_cast<size_t>(n));
    if (answer->back() != '\n') continue;
    answer->pop_back();
    close(socket);
    return true;
  }
  return fail("the controller's answer has no end");
}
