#include "host/net/netinterface.h"

#include "host/base/gxthread.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

struct Choice {
  CGXCritical Lock;
  std::string Name GUARDED_BY(Lock);  // empty: that of the default route
};

Choice& TheChoice() {
  static Choice choice;
  return choice;
}

// What getifaddrs() says now; addresses come and go with DHCP, so nothing is kept.
class CInterfaceList {
 public:
  CInterfaceList() {
    if (getifaddrs(&m_pFirst) != 0) m_pFirst = nullptr;
  }
  ~CInterfaceList() {
    if (m_pFirst != nullptr) freeifaddrs(m_pFirst);
  }
  CInterfaceList(const CInterfaceList&) = delete;
  CInterfaceList& operator=(const CInterfaceList&) = delete;

  const ifaddrs* First() const { return m_pFirst; }

  // The interface's first entry of that address family; null when it has none.
  const ifaddrs* Find(const std::string& name, int family) const {
    for (const ifaddrs* entry = m_pFirst; entry != nullptr; entry = entry->ifa_next)
      if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == family && name == entry->ifa_name)
        return entry;
    return nullptr;
  }

 private:
  ifaddrs* m_pFirst = nullptr;
};

std::string DefaultInterface(const CInterfaceList& list) {
  std::string name = DefaultRouteInterface().Str();
  if (list.Find(name, AF_INET) != nullptr) return name;
  for (const ifaddrs* entry = list.First(); entry != nullptr; entry = entry->ifa_next)
    if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
        (entry->ifa_flags & IFF_UP) != 0 && (entry->ifa_flags & IFF_LOOPBACK) == 0)
      return entry->ifa_name;
  return "lo";
}

std::string UsedInterface(const CInterfaceList& list) {
  const std::string chosen = NetworkInterface().Str();
  return chosen.empty() ? DefaultInterface(list) : chosen;
}

unsigned AddressOf(const sockaddr* address) {
  sockaddr_in inet{};
  if (address != nullptr) std::memcpy(&inet, address, sizeof inet);
  return inet.sin_addr.s_addr;
}

constexpr size_t MAC_BYTES = 6;

}  // namespace

CGXString DefaultRouteInterface(const char* table) {
  const std::unique_ptr<FILE, int (*)(FILE*)> routes(std::fopen(table, "re"), &std::fclose);
  if (routes == nullptr) return {};
  std::string best;
  unsigned bestMetric = UINT_MAX;
  char line[256];
  while (std::fgets(line, sizeof line, routes.get()) != nullptr) {
    char name[IFNAMSIZ] = "";
    unsigned destination = 0, gateway = 0, flags = 0, metric = 0, mask = 0;
    if (std::sscanf(line, "%15s %x %x %x %*d %*d %u %x", name, &destination, &gateway, &flags, &metric,
                    &mask) != 6)
      continue;
    if (destination != 0 || mask != 0 || (flags & RTF_UP) == 0 || metric >= bestMetric) continue;
    best = name;
    bestMetric = metric;
  }
  return CGXString(best);
}

bool SetNetworkInterface(const CGXString& name) {
  const CInterfaceList list;
  if (list.Find(name.IsEmpty() ? DefaultInterface(list) : name.Str(), AF_INET) == nullptr) return false;
  Choice& choice = TheChoice();
  const CGXLock hold(choice.Lock);
  choice.Name = name.Str();
  return true;
}

CGXString NetworkInterface() {
  Choice& choice = TheChoice();
  const CGXLock hold(choice.Lock);
  return CGXString(choice.Name);
}

unsigned GetPrimaryIP() {
  unsigned address = 0;
  return GetNetInfo(0, nullptr, &address, nullptr, 0) ? address : 0;
}

bool GetNetInfo(int interfaceNo, unsigned* netmask, unsigned* address, unsigned char* mac, int /*reserved*/) {
  if (interfaceNo != 0) return false;
  const CInterfaceList list;
  const std::string name = UsedInterface(list);
  const ifaddrs* inet = list.Find(name, AF_INET);
  if (inet == nullptr) return false;
  if (netmask != nullptr) *netmask = AddressOf(inet->ifa_netmask);
  if (address != nullptr) *address = AddressOf(inet->ifa_addr);
  if (mac != nullptr) {
    sockaddr_ll link{};
    if (const ifaddrs* entry = list.Find(name, AF_PACKET)) std::memcpy(&link, entry->ifa_addr, sizeof link);
    std::memcpy(mac, link.sll_addr, MAC_BYTES);
  }
  return true;
}

int CreateMulticastSocket() {
  const CInterfaceList list;
  const std::string name = UsedInterface(list);
  ip_mreqn interface {};
  interface.imr_ifindex = static_cast<int>(if_nametoindex(name.c_str()));
  if (interface.imr_ifindex == 0) return -1;
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket != -1 && setsockopt(socket, IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface) != 0) {
    close(socket);
    return -1;
  }
  return socket;
}
