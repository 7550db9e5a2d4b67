// The ONVIF device service.
#include "sim/services.h"

#include <ctime>

namespace {

constexpr char SERVICE_PATH[] = "/onvif/device_service";
constexpr char MEDIA_PATH[] = "/onvif/media_service";
constexpr char PTZ_PATH[] = "/onvif/ptz_service";
constexpr char EVENT_PATH[] = "/onvif/event_service";

void AddDateTime(pugi::xml_node parent, const char* name, std::time_t at) {
  std::tm tm{};
  gmtime_r(&at, &tm);
  pugi::xml_node node = Add(parent, name);
  pugi::xml_node time = Add(node, "tt:Time");
  Add(time, "tt:Hour", tm.tm_hour);
  Add(time, "tt:Minute", tm.tm_min);
  Add(time, "tt:Second", tm.tm_sec);
  pugi::xml_node date = Add(node, "tt:Date");
  Add(date, "tt:Year", tm.tm_year + 1900);
  Add(date, "tt:Month", tm.tm_mon + 1);
  Add(date, "tt:Day", tm.tm_mday);
}

COutcome GetSystemDateAndTime(CSOAPCall& call) {
  const std::time_t now = std::chrono::system_clock::to_time_t(call.Model.Clock());
  pugi::xml_node node = Add(call.Out, "tds:SystemDateAndTime");
  Add(node, "tt:DateTimeType", "Manual");
  Add(node, "tt:DaylightSavings", "false");
  Add(Add(node, "tt:TimeZone"), "tt:TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
  AddDateTime(node, "tt:UTCDateTime", now);
  AddDateTime(node, "tt:LocalDateTime", now + 3600);
  return {};
}

COutcome GetDeviceInformation(CSOAPCall& call) {
  const CSimIdentity& id = call.Model.Identity;
  Add(call.Out, "tds:Manufacturer", id.Manufacturer);
  Add(call.Out, "tds:Model", id.Model);
  Add(call.Out, "tds:FirmwareVersion", id.Firmware);
  Add(call.Out, "tds:SerialNumber", id.Serial);
  Add(call.Out, "tds:HardwareId", id.HardwareId);
  return {};
}

bool HasPtz(const CCameraModel& model) {
  return model.Identity.Kind == "ptz";
}

void AddService(CSOAPCall& call, const char* uri, const char* path) {
  pugi::xml_node node = Add(call.Out, "tds:Service");
  Add(node, "tds:Namespace", uri);
  Add(node, "tds:XAddr", call.Model.HTTPBase() + path);
  if (Text(call.In, "IncludeCapability") == "true") Add(node, "tds:Capabilities");
  pugi::xml_node version = Add(node, "tds:Version");
  Add(version, "tt:Major", 2);
  Add(version, "tt:Minor", 60);
}

COutcome GetServices(CSOAPCall& call) {
  if (call.Model.Quirks.NoGetServices) return NotSupported("Optional Action Not Implemented");
  AddService(call, ns::DEVICE, SERVICE_PATH);
  AddService(call, ns::MEDIA, MEDIA_PATH);
  AddService(call, ns::EVENTS, EVENT_PATH);
  if (HasPtz(call.Model)) AddService(call, ns::PTZ, PTZ_PATH);
  return {};
}

COutcome GetServiceCapabilities(CSOAPCall& call) {
  pugi::xml_node node = Add(call.Out, "tds:Capabilities");
  Attr(Attr(Add(node, "tds:Network"), "IPFilter", "false"), "IPVersion6", "false");
  Attr(Attr(Add(node, "tds:Security"), "UsernameToken", "true"), "HttpDigest", "true");
  Attr(Attr(Add(node, "tds:System"), "DiscoveryResolve", "false"), "DiscoveryBye", "false");
  return {};
}

void AddDeviceCapabilities(CSOAPCall& call, pugi::xml_node parent) {
  pugi::xml_node device = Add(parent, "tt:Device");
  Add(device, "tt:XAddr", call.Model.HTTPBase() + SERVICE_PATH);
  pugi::xml_node network = Add(device, "tt:Network");
  for (const char* name : {"tt:IPFilter", "tt:ZeroConfiguration", "tt:IPVersion6", "tt:DynDNS"})
    Add(network, name, "false");
  pugi::xml_node system = Add(device, "tt:System");
  Add(system, "tt:DiscoveryResolve", "false");
  Add(system, "tt:DiscoveryBye", "false");
  Add(system, "tt:RemoteDiscovery", "false");
}

void AddEventCapabilities(CSOAPCall& call, pugi::xml_node parent) {
  pugi::xml_node events = Add(parent, "tt:Events");
  Add(events, "tt:XAddr", call.Model.HTTPBase() + EVENT_PATH);
  Add(events, "tt:WSSubscriptionPolicySupport", "false");
  Add(events, "tt:WSPullPointSupport", "false");
  Add(events, "tt:WSPausableSubscriptionManagerInterfaceSupport", "false");
}

void AddMediaCapabilities(CSOAPCall& call, pugi::xml_node parent) {
  pugi::xml_node media = Add(parent, "tt:Media");
  Add(media, "tt:XAddr", call.Model.HTTPBase() + MEDIA_PATH);
  pugi::xml_node streaming = Add(media, "tt:StreamingCapabilities");
  Add(streaming, "tt:RTPMulticast", "false");
  Add(streaming, "tt:RTP_TCP", "true");
  Add(streaming, "tt:RTP_RTSP_TCP", "true");
}

COutcome GetCapabilities(CSOAPCall& call) {
  if (call.Model.Quirks.NoGetCapabilities) return NotSupported("Optional Action Not Implemented");
  const std::string category = Text(call.In, "Category");
  const auto wanted = [&](const char* name) {
    return category.empty() || category == "All" || category == name;
  };
  if (category == "PTZ" && !HasPtz(call.Model))
    return CFault{500, "Receiver", "ter:ActionNotSupported", "ter:NoSuchService", "No PTZ service"};
  pugi::xml_node node = Add(call.Out, "tds:Capabilities");
  if (wanted("Device")) AddDeviceCapabilities(call, node);
  if (wanted("Events")) AddEventCapabilities(call, node);
  if (wanted("Media")) AddMediaCapabilities(call, node);
  if (wanted("PTZ") && HasPtz(call.Model))
    Add(Add(node, "tt:PTZ"), "tt:XAddr", call.Model.HTTPBase() + PTZ_PATH);
  return {};
}

COutcome GetScopes(CSOAPCall& call) {
  for (const std::string& scope : ScopesOf(call.Model.Identity)) {
    pugi::xml_node node = Add(call.Out, "tds:Scopes");
    Add(node, "tt:ScopeDef", "Fixed");
    Add(node, "tt:ScopeItem", scope);
  }
  return {};
}

COutcome GetHostname(CSOAPCall& call) {
  pugi::xml_node node = Add(call.Out, "tds:HostnameInformation");
  Add(node, "tt:FromDHCP", "false");
  Add(node, "tt:Name", call.Model.Identity.Kind + "-camera");
  return {};
}

COutcome GetNetworkInterfaces(CSOAPCall& call) {
  pugi::xml_node node = Attr(Add(call.Out, "tds:NetworkInterfaces"), "token", "eth0");
  Add(node, "tt:Enabled", "true");
  pugi::xml_node info = Add(node, "tt:Info");
  Add(info, "tt:Name", "eth0");
  Add(info, "tt:HwAddress", "02:00:5e:00:53:" + call.Model.Identity.UUID.substr(34));
  Add(info, "tt:MTU", 1500);
  pugi::xml_node ipv4 = Add(node, "tt:IPv4");
  Add(ipv4, "tt:Enabled", "true");
  pugi::xml_node config = Add(ipv4, "tt:Config");
  pugi::xml_node manual = Add(config, "tt:Manual");
  Add(manual, "tt:Address", call.Model.Address);
  Add(manual, "tt:PrefixLength", 8);
  Add(config, "tt:DHCP", "false");
  return {};
}

// The first address of the camera's network, as routers have it.
std::string Gateway(const CCameraModel& model) {
  return model.Address.substr(0, model.Address.rfind('.')) + ".1";
}

COutcome GetNetworkDefaultGateway(CSOAPCall& call) {
  Add(Add(call.Out, "tds:NetworkGateway"), "tt:IPv4Address", Gateway(call.Model));
  return {};
}

COutcome GetDNS(CSOAPCall& call) {
  pugi::xml_node node = Add(call.Out, "tds:DNSInformation");
  Add(node, "tt:FromDHCP", "false");
  pugi::xml_node server = Add(node, "tt:DNSManual");
  Add(server, "tt:Type", "IPv4");
  Add(server, "tt:IPv4Address", Gateway(call.Model));
  return {};
}

constexpr CSOAPOperation OPERATIONS[] = {
    {"GetSystemDateAndTime", true, GetSystemDateAndTime},
    {"GetDeviceInformation", true, GetDeviceInformation},
    {"GetServices", true, GetServices},
    {"GetServiceCapabilities", true, GetServiceCapabilities},
    {"GetCapabilities", true, GetCapabilities},
    {"GetHostname", true, GetHostname},
    {"GetScopes", false, GetScopes},
    {"GetNetworkInterfaces", false, GetNetworkInterfaces},
    {"GetNetworkDefaultGateway", false, GetNetworkDefaultGateway},
    {"GetDNS", false, GetDNS},
};

}  // namespace

const CService& DeviceService() {
  static const CService g_service{ns::DEVICE, "tds", OPERATIONS};
  return g_service;
}
