#include "host/intercom/rtp_path.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr int ADDRESS_BYTES = 4, PORT_BYTES = 2;

}  // namespace

void SetPathAddress(GXT_RTP_PATH_DESCRIPTOR* path, unsigned address, unsigned short port) {
  const in_port_t networkPort = htons(port);
  *path = {};
  std::memcpy(path->Data, &address, ADDRESS_BYTES);
  std::memcpy(path->Data + ADDRESS_BYTES, &networkPort, PORT_BYTES);
}

bool GetPathAddress(const GXT_RTP_PATH_DESCRIPTOR* path, sockaddr_in* address) {
  if (path == nullptr) return false;
  sockaddr_in found{};
  found.sin_family = AF_INET;
  std::memcpy(&found.sin_addr, path->Data, ADDRESS_BYTES);
  std::memcpy(&found.sin_port, path->Data + ADDRESS_BYTES, PORT_BYTES);
  if (found.sin_addr.s_addr == 0) return false;
  *address = found;
  return true;
}

bool IsRTPHello(const unsigned char* packet, int length) {
  return length == RTP_HELLO_BYTES &&
         std::all_of(packet, packet + length, [](unsigned char byte) { return byte == 0; });
}

namespace {

bool CanSendTo(const GXT_RTP_PATH_DESCRIPTOR* path, sockaddr_in* peer) {
  return GetPathAddress(path, peer) && peer->sin_port != 0;
}

}  // namespace

int STUN_SendPacket(int socket, const unsigned char* data, int length, unsigned char* /*scratch*/,
                    const GXT_RTP_PATH_DESCRIPTOR* pathA, const GXT_RTP_PATH_DESCRIPTOR* pathB) {
  sockaddr_in peer;
  if (length < 0 || (!CanSendTo(pathB, &peer) && !CanSendTo(pathA, &peer))) return -1;
  return static_cast<int>(sendto(socket, data, static_cast<size_t>(length), MSG_NOSIGNAL | MSG_DONTWAIT,
                                 reinterpret_cast<const sockaddr*>(&peer), sizeof peer));
}
