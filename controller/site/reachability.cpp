#include "controller/site/reachability.h"

#include "host/net/socket.h"

#include <cstring>

namespace {

constexpr std::chrono::seconds PERIOD{15};
constexpr unsigned CONNECT_MS = 3000;
constexpr unsigned short HTTP_PORT = 80;

}  // namespace

std::string TryConnecting(const std::string& url) {
  const size_t begin = url.find("//") == std::string::npos ? 0 : url.find("//") + 2;
  const std::string host = url.substr(begin, url.find('/', begin) - begin);
  sockaddr_in address{};
  if (host.empty() || ResolveAddress(host, &address, HTTP_PORT) == 0) return "the host name is not known";
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return std::strerror(NORVA_GetLastError());
  const bool connected = ConnectSocket(fd, &address, CONNECT_MS) == 0;
  const int code = NORVA_GetLastError();
  CloseSocket(fd);
  if (connected) return "something answers at that address and port";
  return std::strerror(code);
}

CReachability::~CReachability() {
  m_Thread.Cancel();
  m_Thread.Join();
}

void CReachability::Check(const std::string& url) {
  const auto now = std::chrono::steady_clock::now();
  if (now < m_Next || m_Thread.IsRunning()) return;
  m_Next = now + PERIOD;
  m_Thread.WaitComplete(0);
  m_URL = url;
  m_Thread.Start(Ask, this, 0, "Reachability");
}

std::string CReachability::Finding() const {
  const std::lock_guard<std::mutex> lock(m_Lock);
  return m_Finding;
}

unsigned CReachability::Ask(void* self) {
  auto* check = static_cast<CReachability*>(self);
  std::string finding = TryConnecting(check->m_URL);
  const std::lock_guard<std::mutex> lock(check->m_Lock);
  check->m_Finding = std::move(finding);
  return 0;
}
