#include "sim/door_station.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace {

using Clock = CSipCallee::Clock;

constexpr int kFirstPort = 6000, kLastPort = 6098;  // of RTP, even; each call has another one
constexpr int kKeptCalls = 10;                      // whose sound and figures are kept
constexpr int kIdleMs = 1000;

sockaddr_in At(const std::string& address, int port) {
  sockaddr_in at{};
  at.sin_family = AF_INET;
  at.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, address.c_str(), &at.sin_addr);
  return at;
}

// A UDP socket that tells when each datagram arrived; -1: the port is in use.
int OpenUdp(const std::string& address, int port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
  const sockaddr_in at = At(address, port);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0) return fd;
  close(fd);
  return -1;
}

// One datagram with its sender and its time of arrival; below 0: none.
ssize_t Receive(int fd, std::string* bytes, sockaddr_in* from, Clock::time_point* arrived) {
  alignas(cmsghdr) char control[128];
  iovec into{bytes->data(), bytes->size()};
  msghdr message{};
  message.msg_name = from;
  message.msg_namelen = sizeof *from;
  message.msg_iov = &into;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t n = recvmsg(fd, &message, 0);
  *arrived = Clock::now();
  for (cmsghdr* c = CMSG_FIRSTHDR(&message); n >= 0 && c != nullptr; c = CMSG_NXTHDR(&message, c)) {
    if (c->cmsg_type != SO_TIMESTAMPNS) continue;
    timespec stamp, now;
    std::memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
    clock_gettime(CLOCK_REALTIME, &now);
    *arrived -=
        std::chrono::seconds(now.tv_sec - stamp.tv_sec) + std::chrono::nanoseconds(now.tv_nsec - stamp.tv_nsec);
  }
  return n;
}

}  // namespace

bool CDoorStation::Start(std::string* error) {
  const std::lock_guard guard(m_lock);
  m_sip = OpenUdp(m_model.address, m_model.sipPort);
  if (m_sip < 0) {
    *error = "cannot listen on " + m_model.address + ":" + std::to_string(m_model.sipPort) +
             " (SIP): " + std::strerror(errno);
    return false;
  }
  m_wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  const auto send = [this](const std::string& bytes, const sockaddr_in& to) {
    sendto(m_sip, bytes.data(), bytes.size(), MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  };
  const auto manner = [this] {
    const std::lock_guard model(m_model.lock);
    const CQuirks& q = m_model.quirks;
    return CSipManner{q.sipInvite,   q.sipOptionsSilent, q.sipByeSilent, q.sipAnswerMs,
                      q.sipLoseAcks, q.sipInfoMs,        q.sipHangUpMs};
  };
  const auto note = [this](const std::string& request, const std::string& outcome) {
    const std::lock_guard model(m_model.lock);
    m_model.Note(request, outcome);
  };
  m_callee = std::make_unique<CSipCallee>(
      m_model.address, m_model.sipPort, m_model.identity.serial,
      CSipCallee::CLine{send, [this] { return OpenSpeaker(); },
                        [this](const CSipCallState& last) { CloseCall(last); }, manner, note});
  m_stop = false;
  m_thread = std::thread([this] { Run(); });
  return true;
}

void CDoorStation::Stop() {
  if (!m_thread.joinable()) return;
  m_stop = true;
  eventfd_write(m_wake, 1);
  m_thread.join();
  const std::lock_guard guard(m_lock);
  m_callee->Drop("power off");
  close(m_sip);
  close(m_wake);
}

void CDoorStation::Run() {
  while (!m_stop) {
    pollfd sockets[3];
    int wait = kIdleMs;
    {
      const std::lock_guard guard(m_lock);
      const Clock::time_point now = Clock::now(), due = m_callee->NextTimer();
      if (due < now + std::chrono::milliseconds(kIdleMs))
        wait =
            std::max<int>(0, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(due - now).count()));
      sockets[0] = {m_wake, POLLIN, 0};
      sockets[1] = {m_sip, POLLIN, 0};
      sockets[2] = {m_sound, POLLIN, 0};  // -1 is passed over
    }
    poll(sockets, 3, wait);
    const std::lock_guard guard(m_lock);
    if (sockets[2].revents != 0) ReceiveSound();
    if (sockets[1].revents != 0) ReceiveSip();
    m_callee->OnTimer(Clock::now());
  }
}

void CDoorStation::ReceiveSip() {
  std::string bytes(65536, '\0');
  sockaddr_in from{};
  Clock::time_point arrived;
  const ssize_t n = Receive(m_sip, &bytes, &from, &arrived);
  if (n > 0) m_callee->Receive(bytes.substr(0, static_cast<size_t>(n)), from, Clock::now());
}

void CDoorStation::ReceiveSound() {
  std::string bytes(4096, '\0');
  sockaddr_in from{};
  Clock::time_point arrived;
  for (ssize_t n; m_sound >= 0 && (n = Receive(m_sound, &bytes, &from, &arrived)) >= 0;)
    m_speaker.Packet(reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<size_t>(n), arrived);
}

int CDoorStation::OpenSpeaker() {
  for (int tries = 0; tries < (kLastPort - kFirstPort) / 2 && m_sound < 0; ++tries) {
    m_nextPort = m_nextPort < kFirstPort || m_nextPort >= kLastPort ? kFirstPort : m_nextPort + 2;
    m_sound = OpenUdp(m_model.address, m_nextPort);
  }
  if (m_sound < 0) return 0;
  ++m_answered;
  std::string path;
  if (!m_model.soundFolder.empty()) {
    const auto name = [&](int call) {
      return m_model.soundFolder + "/" + m_model.identity.serial + "-call-" + std::to_string(call) + ".wav";
    };
    path = name(m_answered);
    std::error_code ignored;
    std::filesystem::create_directories(m_model.soundFolder, ignored);
    std::filesystem::remove(name(m_answered - kKeptCalls), ignored);
  }
  if (!m_speaker.Open(path)) std::fprintf(stderr, "camsim: cannot write %s\n", path.c_str());
  return m_nextPort;
}

void CDoorStation::CloseCall(const CSipCallState& last) {
  if (m_sound < 0) return;  // never answered
  m_speaker.Close();
  m_ended.push_back(CallToJson(last));
  if (m_ended.size() > kKeptCalls) m_ended.pop_front();
  close(m_sound);
  m_sound = -1;
}

nlohmann::json CDoorStation::CallToJson(const CSipCallState& call) const {
  nlohmann::json json = {{"id", call.id},       {"caller", call.caller},
                         {"state", call.state}, {"answers_sent", call.answersSent},
                         {"infos", call.infos}, {"infos_answered", call.infosAnswered}};
  if (m_sound < 0) return json;  // not answered yet
  json["number"] = m_answered;
  json["rtp_port"] = m_nextPort;
  json["speaker"] = m_speaker.ToJson();
  return json;
}

nlohmann::json CDoorStation::ToJson() {
  const std::lock_guard guard(m_lock);
  m_speaker.Flush();
  const std::optional<CSipCallState> call = m_callee ? m_callee->Call() : std::nullopt;
  return {{"call", call ? CallToJson(*call) : nlohmann::json()}, {"answered", m_answered}, {"calls", m_ended}};
}
