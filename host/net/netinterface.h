// Which of the machine's interfaces the controller uses towards cameras, and its addresses there, in network
// order.
#pragma once

#include "host/base/gxstring.h"

// The interface that the controller uses towards cameras: by name, or empty for that of the default route. "lo"
// keeps everything on this machine. False when there is no such interface with an IPv4 address (the choice is
// then unchanged).
bool SetNetworkInterface(const CGXString& name);
CGXString NetworkInterface();
// That of the default route with the lowest metric; empty when there is none. `table`: routes as the kernel
// lists them.
CGXString DefaultRouteInterface(const char* table = "/proc/net/route");

unsigned GetPrimaryIP();  // the controller's address on that interface; 0 when unknown
// Netmask, address and hardware address (6 bytes) of that interface, which is number 0; each output may be
// null. False when unknown.
bool GetNetInfo(int interfaceNo, unsigned* netmask, unsigned* address, unsigned char* mac, int reserved);

// A UDP socket that sends multicast on that interface (IP_MULTICAST_IF); -1 on failure.
int CreateMulticastSocket();
