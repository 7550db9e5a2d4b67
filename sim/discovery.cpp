#include "sim/discovery.h"

#include "sim/soap.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr char GROUP[] = "239.255.255.250";
constexpr uint16_t PORT = 3702;
constexpr int POLL_MS = 100;  // how soon a stop is seen

sockaddr_in Address(const std::string& ip, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  inet_pton(AF_INET, ip.c_str(), &address.sin_addr);
  return address;
}

// True when a probe's list of types is empty or names what we are.
bool WantsCamera(const std::string& types) {
  return types.empty() || types.find("NetworkVideoTransmitter") != std::string::npos ||
         types.find("Device") != std::string::npos;
}

std::string XAddrs(const CCameraModel& model) {
  std::string url = model.HTTPBase() + "/onvif/device_service";
  std::string secure = "https://" + model.Address + "/onvif/device_service";
  if (model.Quirks.XAddrs == "https") return secure;
  if (model.Quirks.XAddrs == "two") return url + " " + secure;
  return url;
}

// Sends from the camera's own address, so that the receiver sees who answers.
void SendFrom(const std::string& from, const sockaddr_in& to, const std::string& text) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  const sockaddr_in own = Address(from, 0);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0)
    sendto(fd, text.data(), text.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  close(fd);
}

}  // namespace

std::string AnswerProbe(const CCameraModel& model, const std::string& datagram) {
  CSOAPRequest request;
  if (!request.Parse(datagram) || request.Name() != "Probe" || !WantsCamera(Text(request.Operation(), "Types")))
    return "";
  CSOAPReply reply(model.Identity.SOAPPrefix);
  pugi::xml_node envelope = reply.Body().parent();
  Attr(envelope, "xmlns:wsa", ns::WSD_ADDRESSING);
  Attr(envelope, "xmlns:d", ns::WSD_DISCOVERY);
  Attr(envelope, "xmlns:dn", ns::NETWORK);
  pugi::xml_node header = reply.Header();
  Add(header, "wsa:MessageID", "urn:uuid:" + model.Identity.UUID);
  Add(header, "wsa:RelatesTo", request.MessageId());
  Add(header, "wsa:To", "http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous");
  Add(header, "wsa:Action", std::string(ns::WSD_DISCOVERY) + "/ProbeMatches");
  pugi::xml_node match = Add(Add(reply.Body(), "d:ProbeMatches"), "d:ProbeMatch");
  Add(Add(match, "wsa:EndpointReference"), "wsa:Address", "urn:uuid:" + model.Identity.UUID);
  Add(match, "d:Types", "dn:NetworkVideoTransmitter tds:Device");
  std::string scopes;
  for (const std::string& scope : ScopesOf(model.Identity)) scopes += (scopes.empty() ? "" : " ") + scope;
  Add(match, "d:Scopes", scopes);
  Add(match, "d:XAddrs", XAddrs(model));
  Add(match, "d:MetadataVersion", 1);
  return reply.ToString(model.Quirks.XMLEmpty);
}

bool CDiscovery::Start(const std::string& interfaceAddress, std::vector<CCameraModel*> cameras,
                       std::string* error) {
  m_Cameras = std::move(cameras);
  m_ISocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(m_ISocket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  setsockopt(m_ISocket, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
  const sockaddr_in own = Address(GROUP, PORT);
  ip_mreq join{};
  join.imr_multiaddr = own.sin_addr;
  join.imr_interface = Address(interfaceAddress, 0).sin_addr;
  if (bind(m_ISocket, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
      setsockopt(m_ISocket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &join, sizeof join) != 0) {
    *error = "discovery cannot listen on " + std::string(GROUP) + ":3702 at " + interfaceAddress + ": " +
             std::strerror(errno);
    return false;
  }
  m_Thread = std::thread([this] { Run(); });
  return true;
}

void CDiscovery::Stop() {
  m_BStop = true;
  if (m_Thread.joinable()) m_Thread.join();
  if (m_ISocket >= 0) close(m_ISocket);
  m_ISocket = -1;
}

void CDiscovery::Run() {
  std::string buffer(65536, '\0');
  while (!m_BStop) {
    pollfd ready{m_ISocket, POLLIN, 0};
    if (poll(&ready, 1, POLL_MS) <= 0) continue;
    sockaddr_in from{};
    socklen_t fromSize = sizeof from;
    const ssize_t n =
        recvfrom(m_ISocket, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &fromSize);
    if (n <= 0) continue;
    for (CCameraModel* camera : m_Cameras) {
      const std::lock_guard guard(camera->Lock);
      if (!camera->Powered || camera->Quirks.DiscoverySilent) continue;
      const std::string answer = AnswerProbe(*camera, buffer.substr(0, static_cast<size_t>(n)));
      if (answer.empty()) continue;
      camera->Note("Probe", "ok");
      SendFrom(camera->Address, from, answer);
    }
  }
}
