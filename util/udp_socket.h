// UDP sockets.
#pragma once

#include "util/owned_socket.h"

COwnedSocket CreateUDP();        // not open when the system has none to give; for IPv4, blocking
COwnedSocket CreateUDPNoWait();  // the same, non-blocking
// Gives it a port in host order (0: any that is free) at an address of this machine in network order (0: all).
// False when the port is taken or the address is not ours.
bool BindUDP(const COwnedSocket& socket, unsigned short port, unsigned address = 0);
