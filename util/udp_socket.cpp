#include "util/udp_socket.h"

#include <netinet/in.h>
#include <sys/socket.h>

COwnedSocket CreateUDP() {
  return COwnedSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

COwnedSocket CreateUDPNoWait() {
  return COwnedSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

bool BindUDP(const COwnedSocket& socket, unsigned short port, unsigned address) {
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = address;
  own.sin_port = htons(port);
  return bind(socket.Get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
}
