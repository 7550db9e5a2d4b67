#include "camera/notification_listener.h"

#include <sys/socket.h>

#include <cerrno>
#include <string_view>

namespace {

constexpr int BACKLOG = 4;
constexpr unsigned ACCEPT_RETRY_MS = 500;  // when there is no descriptor to be had
constexpr std::string_view ANSWER =
    "HTTP/1.1 202 Accepted\r\nContent-Length: 0\r\nServer: NORVA Controller\r\nConnection: close\r\n\r\n";

bool IsPassing(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

bool CNotificationListener::Open(unsigned short port) {
  if (port == 0) return false;  // the system would choose one that no camera knows
  COwnedSocket listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_in address{};
  SetIP(INADDR_ANY, &address);
  address.sin_port = htons(port);
  if (!listener.IsOpen() || SetReuseAddress(listener.Get()) != 0 ||
      bind(listener.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener.Get(), BACKLOG) != 0)
    return false;
  m_Listen = std::move(listener);
  return true;
}

std::span<char> CNotificationListener::Wait(unsigned milliseconds) {
  if (!m_Client.IsOpen()) {
    if (WaitSocketReadState(m_Listen.Get(), milliseconds)) Accept();
    return {};
  }
  const bool late = m_Limit.Left() == 0;
  if (!late && WaitSocketReadState(m_Client.Get(), milliseconds)) return Receive();
  return late || m_Silence.Left() == 0 ? Close(m_Framer.Received(0)) : std::span<char>();
}

void CNotificationListener::Accept() {
  m_Client.Reset(accept4(m_Listen.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!m_Client.IsOpen()) {
    if (!IsPassing(errno) && errno != ECONNABORTED) Sleep(ACCEPT_RETRY_MS);
    return;
  }
  m_Framer.Begin();
  m_Silence = CGXDeadline(SILENCE_MS);
  m_Limit = CGXDeadline(LIMIT_MS);
}

std::span<char> CNotificationListener::Receive() {
  const std::span<char> space = m_Framer.Space();
  // Without room the request ends here, whatever else the sender has to say.
  const ssize_t bytes = space.empty() ? 0 : recv(m_Client.Get(), space.data(), space.size(), MSG_DONTWAIT);
  if (bytes < 0 && IsPassing(errno)) return {};
  m_Silence = CGXDeadline(SILENCE_MS);
  return Close(m_Framer.Received(bytes));
}

// Ends the connection of a sender that is through, before what it said is looked at: it is not kept waiting.
std::span<char> CNotificationListener::Close(CNotificationFramer::Result result) {
  if (result == CNotificationFramer::Result::MORE) return {};
  if (result == CNotificationFramer::Result::COMPLETE)
    SendSocket(m_Client.Get(), ANSWER.data(), static_cast<int>(ANSWER.size()), 0);
  m_Client.Close();
  return m_Framer.Body();
}
