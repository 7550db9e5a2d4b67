// Where RTP of the intercom goes: path descriptors, and sending along a path.
#pragma once

#include <netinet/in.h>

// One end of a path that RTP takes. Made and read by the functions below only; others copy it by value.
// All 0: no end. Inside: IPv4 address (4 bytes) and port (2 bytes), both in network order; the rest is 0.
struct GXT_RTP_PATH_DESCRIPTOR {
  unsigned char Data[32];
};

// `address` in network order, `port` in host order.
void SetPathAddress(GXT_RTP_PATH_DESCRIPTOR* path, unsigned address, unsigned short port);
// False, and nothing written, when the path is null or has no address.
bool GetPathAddress(const GXT_RTP_PATH_DESCRIPTOR* path, sockaddr_in* address);

// A hello is this many zero bytes. The receiver of sound sends one along its path again and again, which opens
// the way through address translation; the relay answers the first one with a startup packet, which looks the
// same.
inline constexpr int RTP_HELLO_BYTES = 16;
bool IsRTPHello(const unsigned char* packet, int length);

// One datagram along a path, never blocking: to the far end `pathB`, or, when that is none, to `pathA` (a
// relayed path has one descriptor only: the relay's). The bytes sent, or -1. `scratch` is unused, may be null.
int STUN_SendPacket(int socket, const unsigned char* data, int length, unsigned char* scratch,
                    const GXT_RTP_PATH_DESCRIPTOR* pathA, const GXT_RTP_PATH_DESCRIPTOR* pathB);
