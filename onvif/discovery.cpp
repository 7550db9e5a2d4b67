// WS-Discovery (2005/04) of network video transmitters, and who answers.
#include "host/base/gxthread.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"
#include "onvif/namespaces.h"
#include "onvif/onvif.h"
#include "onvif/string_list.h"
#include "util/gxtimer.h"
#include "util/owned_socket.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

constexpr unsigned short DISCOVERY_PORT = 3702;
constexpr unsigned SEARCH_ALL_MS = 1999, SEARCH_ONE_MS = 4999;
constexpr unsigned FIRST_ANSWER_MS = 500, FURTHER_ANSWERS_MS = 125;
constexpr int QUERY_TIMEOUT_MS = 1000;
constexpr int SEARCH_ONE_TTL = 64;  // routers on the way; a search for all stays with the system's default
constexpr int ANSWER_BYTES = 128000;
// So many addresses in one search: each may cost two time-outs, and whoever answers can name as many as it
// likes.
constexpr int MAX_SERVICE_URLS = 512;
constexpr char DEVELOPMENT_CAMERA[] = "192.168.1.2";  // a line is printed when it is asked

// A socket to probe with; not open when that failed.
COwnedSocket ProbeSocket() {
  COwnedSocket probe(CreateMulticastSocket());
  const int on = 1;
  if (probe.IsOpen() && setsockopt(probe.Get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) probe.Close();
  return probe;
}

CGXString ProbeText() {
  CONVIFMsg envelope("soap:Envelope");
  envelope.AddAttrib(CONVIF::FormatXMLNS("soap", NS_SOAP_ENVELOPE));
  envelope.AddAttrib(CONVIF::FormatXMLNS("wsa", NS_WS_ADDRESSING));
  envelope.AddAttrib(CONVIF::FormatXMLNS("wsd", NS_WS_DISCOVERY));
  envelope.AddAttrib(CONVIF::FormatXMLNS("wsdp", NS_ONVIF_NETWORK));
  CONVIFMsg* const header = envelope.AddMSG("soap:Header");
  header->AddValue("wsa:To", WS_DISCOVERY_TO);
  header->AddValue("wsa:Action", WS_DISCOVERY_PROBE_ACTION);
  header->AddValue("wsa:MessageID", CONVIF::GenerateMSGID());
  CONVIFMsg* const probe = envelope.AddMSG("soap:Body")->AddMSG_XMLNS("wsd:Probe", NS_WS_DISCOVERY);
  probe->AddMSG_XMLNS("wsd:Types", NS_WS_DISCOVERY)->AddValue("wsdp:NetworkVideoTransmitter");
  return envelope.CreateString();
}

bool Contains(const CGXObList& urls, std::string_view url) {
  for (CGXPos position = urls.GetHeadPosition(); position;) {
    if (static_cast<const CGXString*>(urls.GetNext(position))->Str() == url) return true;
  }
  return false;
}

// Appends the "http:" addresses of a blank-separated list.
void AddServiceURLs(const CGXString& addresses, CGXObList* urls) {
  const std::string_view text = addresses.Str();
  for (size_t at = text.find("http:"); at != std::string_view::npos; at = text.find("http:", at)) {
    const int length = CONVIF::LengthToDelim(text.data() + at, ' ', static_cast<int>(text.size() - at));
    const std::string_view url = text.substr(at, static_cast<size_t>(length));
    if (urls->GetCount() >= MAX_SERVICE_URLS) return;
    if (!Contains(*urls, url)) urls->AddTail(new CGXString(url));
    at += url.size();
  }
}

// Whether the URL names a camera by a number that is not on the controller's subnet.
bool IsOnOtherSubnet(const CGXString& url) {
  CGXString host, path;
  unsigned address = 0, netmask = 0, own = 0;
  unsigned short port = 0;
  return CONVIF::SplitURL(url, &host, &path) && ParseIP(host, &address, &port) &&
         GetNetInfo(0, &netmask, &own, nullptr, 1) && (address & netmask) != (own & netmask);
}

CONVIFMsg* AskDeviceInformation(const CGXString& url, const CGXString& user, const CGXString& password) {
  return CONVIF::DoQuery_HTTP_Security(url, user, password, "GetDeviceInformation", NS_ONVIF_DEVICE,
                                       QUERY_TIMEOUT_MS);
}

CONVIFDevice* MakeDevice(const CONVIFMsg& information, const CGXString& url) {
  auto* const device = new CONVIFDevice;
  device->Manufacturer(information.FindSubMSGValue("Manufacturer", 0));
  device->Model(information.FindSubMSGValue("Model", 0));
  device->Firmware(information.FindSubMSGValue("FirmwareVersion", 0));
  device->SerialNo(information.FindSubMSGValue("SerialNumber", 0));
  device->HardwareID(information.FindSubMSGValue("HardwareId", 0));
  device->ServiceURL(url);
  return device;
}

// The first device at one of the addresses that is the wanted one.
std::unique_ptr<CONVIFDevice> AskFor(CONVIFDevice* wanted, const CStringList& urls, const CGXString& user,
                                     const CGXString& password) {
  for (CGXPos position = urls.GetHeadPosition(); position && !CGXThread::CurrentCancelled();) {
    std::unique_ptr<CONVIFDevice> device(CONVIF::QueryDeviceAtURL(*urls.Next(position), user, password));
    if (device != nullptr && device->IsSameDevice(wanted)) return device;
  }
  return nullptr;
}

}  // namespace

bool CONVIF::TransmitDiscoveryProbe(int socket) {
  const CGXString text = ProbeText();
  sockaddr_in group{};
  group.sin_family = AF_INET;
  group.sin_port = htons(DISCOVERY_PORT);
  SetIP(239, 255, 255, 250, reinterpret_cast<sockaddr*>(&group));
  return sendto(socket, static_cast<const char*>(text), static_cast<size_t>(text.GetLength()), MSG_NOSIGNAL,
                reinterpret_cast<const sockaddr*>(&group), sizeof group) == text.GetLength();
}

void CONVIF::ListenForDeviceURL(int socket, CGXObList* urls) {
  const std::unique_ptr<char[]> buffer(new char[ANSWER_BYTES + 1]);
  const CGXTimer timer;
  unsigned wait = FIRST_ANSWER_MS;
  while (WaitSocketReadState(socket, wait)) {
    const unsigned elapsed = timer.GXTickCount();
    if (elapsed > FURTHER_ANSWERS_MS) return;
    wait = FURTHER_ANSWERS_MS - elapsed;
    sockaddr_in sender{};
    socklen_t senderSize = sizeof sender;
    const ssize_t received = recvfrom(socket, buffer.get(), ANSWER_BYTES, MSG_DONTWAIT,
                                      reinterpret_cast<sockaddr*>(&sender), &senderSize);
    if (received <= 0) continue;
    unsigned char a, b, c, d;
    GetIP(reinterpret_cast<const sockaddr*>(&sender), &a, &b, &c, &d);
    printf("Recv from %d.%d.%d.%d\r\n", a, b, c, d);
    buffer[static_cast<size_t>(received)] = '\0';
    ReadProbeAnswer(buffer.get(), static_cast<int>(received), urls);
  }
}

void CONVIF::ReadProbeAnswer(char* answer, int length, CGXObList* urls) {
  const std::unique_ptr<CONVIFMsg> tree(CONVIFMsg::CreateMSG(answer, length));
  if (tree != nullptr) AddServiceURLs(tree->FindSubMSGValue(":XAddrs", 0), urls);
}

CONVIFDevice* CONVIF::QueryDeviceAtURL(CGXString url, CGXString user, CGXString password) {
  if (IsOnOtherSubnet(url)) return nullptr;
  if (strncmp(url, DEVELOPMENT_CAMERA, sizeof DEVELOPMENT_CAMERA - 1) == 0) printf("Found Target");
  std::unique_ptr<CONVIFMsg> answer(
      DoQuery_HTTP(url, "GetDeviceInformation", NS_ONVIF_DEVICE, QUERY_TIMEOUT_MS));
  if (answer == nullptr) answer.reset(AskDeviceInformation(url, user, password));
  if (answer == nullptr) return nullptr;
  const CONVIFMsg* const information = answer->FindSubMSG("GetDeviceInformationResponse");
  if (information == nullptr) {
    // A camera that answers anybody with a fault is not offered: the search would list it without a name. It
    // still gets one login, which shows in its own log that, and as whom, the controller looked for it.
    delete AskDeviceInformation(url, user, password);
    return nullptr;
  }
  return MakeDevice(*information, url);
}

void CONVIF::DoDiscovery(CONVIFDeviceSet* found, CGXString user, CGXString password) {
  const COwnedSocket probe = ProbeSocket();
  if (!probe.IsOpen()) return;
  CStringList urls;
  const CGXTimer timer;
  while (timer.GXTickCount() <= SEARCH_ALL_MS && !CGXThread::CurrentCancelled()) {
    if (!TransmitDiscoveryProbe(probe.Get())) return;
    ListenForDeviceURL(probe.Get(), &urls);
  }
  for (CGXPos position = urls.GetHeadPosition(); position && !CGXThread::CurrentCancelled();) {
    std::unique_ptr<CONVIFDevice> device(QueryDeviceAtURL(*urls.Next(position), user, password));
    if (device != nullptr && !found->HasDevice(device.get())) found->AddDevice(device.release());
  }
}

bool CONVIF::FindDevice(CONVIFDevice* wanted, CGXString user, CGXString password) {
  const COwnedSocket probe = ProbeSocket();
  if (!probe.IsOpen()) return false;
  setsockopt(probe.Get(), IPPROTO_IP, IP_MULTICAST_TTL, &SEARCH_ONE_TTL, sizeof SEARCH_ONE_TTL);
  const CGXTimer timer;
  while (timer.GXTickCount() <= SEARCH_ONE_MS && !CGXThread::CurrentCancelled()) {
    if (!TransmitDiscoveryProbe(probe.Get())) return false;
    CStringList urls;
    ListenForDeviceURL(probe.Get(), &urls);
    if (const auto device = AskFor(wanted, urls, user, password); device != nullptr) {
      wanted->CopyDataFrom(device.get());
      return true;
    }
  }
  return false;
}
