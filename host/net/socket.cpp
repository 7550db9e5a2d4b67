#include "host/net/socket.h"

#include "host/base/gxthread.h"
#include "host/base/gxwait.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>

namespace {

constexpr unsigned LOOKUP_STACK_BYTES = 1024 * 1024;  // resolvers of the system use much

bool SetBlocking(int socket, bool blocking) {
  const int flags = fcntl(socket, F_GETFL);
  if (flags == -1) return false;
  return fcntl(socket, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK) == 0;
}

int PendingError(int socket) {
  int error = 0;
  socklen_t length = sizeof error;
  return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

// Splits "host" or "host:port"; the port stays 0 when there is none. False when it is no number of 16 bits.
bool SplitPort(std::string_view text, std::string* host, unsigned short* port) {
  const size_t colon = text.find(':');
  *host = text.substr(0, colon);
  *port = 0;
  if (colon == std::string_view::npos) return true;
  const std::string_view digits = text.substr(colon + 1);
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), *port);
  return error == std::errc() && end == digits.data() + digits.size();
}

// One name being looked up. getaddrinfo cannot be interrupted, so it has a thread of its own, which whoever
// asked may leave behind; the last of the two frees this, and with it the thread.
struct Lookup {
  explicit Lookup(std::string host) : Host(std::move(host)) {}

  const std::string Host;
  CGXSemaphore Done;
  CGXThread Thread;
  unsigned Address = 0;  // valid once Done is signalled; 0: not found

  // Null when the system has no thread to give.
  static std::shared_ptr<Lookup> Begin(const std::string& host) {
    auto lookup = std::make_shared<Lookup>(host);
    auto own = std::make_unique<std::shared_ptr<Lookup>>(lookup);  // the thread's
    if (lookup->Thread.Start(Entry, own.get(), LOOKUP_STACK_BYTES, "Name Lookup") == 0) return nullptr;
    static_cast<void>(own.release());
    return lookup;
  }

  static unsigned Entry(void* own) {
    const std::unique_ptr<std::shared_ptr<Lookup>> lookup(static_cast<std::shared_ptr<Lookup>*>(own));
    (*lookup)->Run();
    return 0;
  }

  void Run() {
    addrinfo wanted{}, *found = nullptr;
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;
    if (getaddrinfo(Host.c_str(), nullptr, &wanted, &found) == 0) {
      sockaddr_in address{};
      std::memcpy(&address, found->ai_addr, sizeof address);
      Address = address.sin_addr.s_addr;
      freeaddrinfo(found);
    }
    Done.SetEvent();
  }
};

unsigned LookUp(const std::string& host, unsigned milliseconds) {
  const std::shared_ptr<Lookup> lookup = Lookup::Begin(host);
  return lookup != nullptr && lookup->Done.WaitSignal(milliseconds) ? lookup->Address : 0;
}

}  // namespace

bool WaitSocketReadState(int socket, unsigned milliseconds) {
  return GXPoll(socket, GXT_POLL::Read, CGXDeadline(milliseconds));
}

bool WaitSocketWriteState(int socket, unsigned milliseconds) {
  return GXPoll(socket, GXT_POLL::Write, CGXDeadline(milliseconds));
}

int ConnectSocket(int socket, const sockaddr_in* address, unsigned milliseconds) {
  if (!SetBlocking(socket, false)) return -1;
  int error = 0;
  if (connect(socket, reinterpret_cast<const sockaddr*>(address), sizeof *address) != 0) {
    error = errno;
    // An interrupted connect goes on by itself.
    if (error == EINPROGRESS || error == EINTR)
      error = WaitSocketWriteState(socket, milliseconds) ? PendingError(socket) : ETIMEDOUT;
  }
  if (!SetBlocking(socket, true) && error == 0) error = errno;
  errno = error;
  return error == 0 ? 0 : -1;
}

int SendSocket(int socket, const void* data, int length, unsigned milliseconds) {
  const CGXDeadline deadline(milliseconds);
  const char* bytes = static_cast<const char*>(data);
  int sent = 0;
  while (sent < length) {
    const ssize_t n =
        send(socket, bytes + sent, static_cast<size_t>(length - sent), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0) {
      sent += static_cast<int>(n);
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      if (!GXPoll(socket, GXT_POLL::Write, deadline)) break;
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return sent;
}

void CloseSocket(int socket) {
  if (socket != -1) close(socket);
}

int SetReuseAddress(int socket) {
  const int on = 1;
  return setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

int SetNonBlocking(int socket) {
  return SetBlocking(socket, false) ? 0 : -1;
}

int NORVA_GetLastError() {
  return errno;
}

void Sleep(unsigned milliseconds) {
  GXPause(CGXDeadline(milliseconds));
}

void SetIP(unsigned address, sockaddr_in* out) {
  out->sin_family = AF_INET;
  out->sin_addr.s_addr = address;
}

void SetIP(unsigned char a, unsigned char b, unsigned char c, unsigned char d, sockaddr* out) {
  const unsigned char octets[4] = {a, b, c, d};
  unsigned address = 0;
  std::memcpy(&address, octets, sizeof octets);
  SetIP(address, reinterpret_cast<sockaddr_in*>(out));
}

void GetIP(const sockaddr* address, unsigned char* a, unsigned char* b, unsigned char* c, unsigned char* d) {
  unsigned char octets[4];
  std::memcpy(octets, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, sizeof octets);
  *a = octets[0];
  *b = octets[1];
  *c = octets[2];
  *d = octets[3];
}

bool ParseIP(const char* text, unsigned* address, unsigned short* port) {
  std::string host;
  unsigned short number = 0;
  in_addr parsed{};
  if (text == nullptr || !SplitPort(text, &host, &number)) return false;
  if (inet_pton(AF_INET, host.c_str(), &parsed) != 1) return false;
  if (address != nullptr) *address = parsed.s_addr;
  if (port != nullptr) *port = number;
  return true;
}

int ResolveAddress(CGXString hostAndPort, sockaddr_in* out, unsigned short defaultPort, unsigned milliseconds) {
  std::string host;
  unsigned address = 0;
  unsigned short port = 0;
  if (!ParseIP(hostAndPort, &address, &port)) {
    if (!SplitPort(hostAndPort.Str(), &host, &port) || host.empty()) return 0;
    address = LookUp(host, milliseconds);
    if (address == 0) return 0;
  }
  *out = {};
  SetIP(address, out);
  out->sin_port = htons(port != 0 ? port : defaultPort);
  return 1;
}

CGXString GXFormatAddress(unsigned address) {
  char text[INET_ADDRSTRLEN] = "";
  const in_addr value{address};
  inet_ntop(AF_INET, &value, text, sizeof text);
  return text;
}

CGXString GXFormatAddress(const sockaddr_in* address) {
  return GXFormatAddress(address->sin_addr.s_addr);
}
