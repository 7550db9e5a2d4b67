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

using Clock = CSIPCallee::Clock;

constexpr int FIRST_PORT = 6000, LAST_PORT = 6098;  // of RTP, even; each call has another one
constexpr int KEPT_CALLS = 10;                      // whose sound and figures are kept
constexpr int IDLE_MS = 1000;

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
  const std::lock_guard guard(m_Lock);
  m_ISIP = OpenUdp(m_Model.Address, m_Model.SIPPort);
  if (m_ISIP < 0) {
    *error = "cannot listen on " + m_Model.Address + ":" + std::to_string(m_Model.SIPPort) +
             " (SIP): " + std::strerror(errno);
    return false;
  }
  m_IWake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  const auto send = [this](const std::string& bytes, const sockaddr_in& to) {
    sendto(m_ISIP, bytes.data(), bytes.size(), MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  };
  const auto manner = [this] {
    const std::lock_guard model(m_Model.Lock);
    const CQuirks& q = m_Model.Quirks;
    return CSIPManner{q.SIPInvite,   q.SIPOptionsSilent, q.SIPByeSilent, q.SIPTakeover,
                      q.SIPAnswerMs, q.SIPLoseAcks,      q.SIPInfoMs,    q.SIPHangUpMs};
  };
  const auto note = [this](const std::string& request, const std::string& outcome) {
    const std::lock_guard model(m_Model.Lock);
    m_Model.Note(request, outcome);
  };
  m_PCallee = std::make_unique<CSIPCallee>(
      m_Model.Address, m_Model.SIPPort, m_Model.Identity.Serial,
      CSIPCallee::CLine{send, [this] { return OpenSpeaker(); },
                        [this](const CSIPCallState& last) { CloseCall(last); }, manner, note});
  m_BStop = false;
  m_Thread = std::thread([this] { Run(); });
  return true;
}

void CDoorStation::Stop() {
  if (!m_Thread.joinable()) return;
  m_BStop = true;
  eventfd_write(m_IWake, 1);
  m_Thread.join();
  const std::lock_guard guard(m_Lock);
  m_PCallee->Drop("power off");
  close(m_ISIP);
  close(m_IWake);
}

void CDoorStation::Run() {
  while (!m_BStop) {
    pollfd sockets[3];
    int wait = IDLE_MS;
    {
      const std::lock_guard guard(m_Lock);
      const Clock::time_point now = Clock::now(), due = m_PCallee->NextTimer();
      if (due < now + std::chrono::milliseconds(IDLE_MS))
        wait =
            std::max<int>(0, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(due - now).count()));
      sockets[0] = {m_IWake, POLLIN, 0};
      sockets[1] = {m_ISIP, POLLIN, 0};
      sockets[2] = {m_ISound, POLLIN, 0};  // -1 is passed over
    }
    poll(sockets, 3, wait);
    const std::lock_guard guard(m_Lock);
    if (sockets[2].revents != 0) ReceiveSound();
    if (sockets[1].revents != 0) ReceiveSip();
    m_PCallee->OnTimer(Clock::now());
  }
}

void CDoorStation::ReceiveSip() {
  std::string bytes(65536, '\0');
  sockaddr_in from{};
  Clock::time_point arrived;
  const ssize_t n = Receive(m_ISIP, &bytes, &from, &arrived);
  if (n > 0) m_PCallee->Receive(bytes.substr(0, static_cast<size_t>(n)), from, Clock::now());
}

void CDoorStation::ReceiveSound() {
  std::string bytes(4096, '\0');
  sockaddr_in from{};
  Clock::time_point arrived;
  for (ssize_t n; m_ISound >= 0 && (n = Receive(m_ISound, &bytes, &from, &arrived)) >= 0;)
    m_Speaker.Packet(reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<size_t>(n), arrived);
}

int CDoorStation::OpenSpeaker() {
  for (int tries = 0; tries < (LAST_PORT - FIRST_PORT) / 2 && m_ISound < 0; ++tries) {
    m_INextPort = m_INextPort < FIRST_PORT || m_INextPort >= LAST_PORT ? FIRST_PORT : m_INextPort + 2;
    m_ISound = OpenUdp(m_Model.Address, m_INextPort);
  }
  if (m_ISound < 0) return 0;
  ++m_NAnswered;
  std::string path;
  if (!m_Model.SoundFolder.empty()) {
    const auto name = [&](int call) {
      return m_Model.SoundFolder + "/" + m_Model.Identity.Serial + "-call-" + std::to_string(call) + ".wav";
    };
    path = name(m_NAnswered);
    std::error_code ignored;
    std::filesystem::create_directories(m_Model.SoundFolder, ignored);
    std::filesystem::remove(name(m_NAnswered - KEPT_CALLS), ignored);
  }
  if (!m_Speaker.Open(path)) std::fprintf(stderr, "camsim: cannot write %s\n", path.c_str());
  return m_INextPort;
}

void CDoorStation::CloseCall(const CSIPCallState& last) {
  if (m_ISound < 0) return;  // never answered
  m_Speaker.Close();
  m_Ended.push_back(CallToJson(last));
  if (m_Ended.size() > KEPT_CALLS) m_Ended.pop_front();
  close(m_ISound);
  m_ISound = -1;
}

nlohmann::json CDoorStation::CallToJson(const CSIPCallState& call) const {
  nlohmann::json json = {{"id", call.Id},       {"caller", call.Caller},
                         {"state", call.State}, {"answers_sent", call.AnswersSent},
                         {"infos", call.Infos}, {"infos_answered", call.InfosAnswered}};
  if (m_ISound < 0) return json;  // not answered yet
  json["number"] = m_NAnswered;
  json["rtp_port"] = m_INextPort;
  json["speaker"] = m_Speaker.ToJSON();
  return json;
}

nlohmann::json CDoorStation::ToJSON() {
  const std::lock_guard guard(m_Lock);
  m_Speaker.Flush();
  const std::optional<CSIPCallState> call = m_PCallee ? m_PCallee->Call() : std::nullopt;
  return {{"call", call ? CallToJson(*call) : nlohmann::json()}, {"answered", m_NAnswered}, {"calls", m_Ended}};
}
