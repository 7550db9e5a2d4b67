// Socket and address helpers. IPv4 addresses as numbers are in network order unless a line says otherwise.
#pragma once

#include "host/base/gxstring.h"

#include <netinet/in.h>

// True when the socket is readable (or at its end) within the time. False at once on a cancelled thread.
bool WaitSocketReadState(int socket, unsigned milliseconds);
bool WaitSocketWriteState(int socket, unsigned milliseconds);

// Connects a TCP socket, as connect() does, but waits at most `milliseconds` and ends at once on a cancelled
// thread. 0 on success, -1 on failure. The socket is blocking afterwards.
int ConnectSocket(int socket, const sockaddr_in* address, unsigned milliseconds);

// send() that never raises SIGPIPE and never blocks beyond `milliseconds` (0, or a cancelled thread: one
// attempt). The bytes taken in time, or -1 when the connection is broken.
int SendSocket(int socket, const void* data, int length, unsigned milliseconds);

void CloseSocket(int socket);     // -1 is ignored
int SetReuseAddress(int socket);  // 0 on success, -1 on failure, as with the next
int SetNonBlocking(int socket);
int NORVA_GetLastError();  // the calling thread's last socket error number

// Sleeps, or ends at once on a cancelled thread.
void Sleep(unsigned milliseconds);

void SetIP(unsigned address, sockaddr_in* out);  // 0 = any; family is set, port kept
void SetIP(unsigned char a, unsigned char b, unsigned char c, unsigned char d, sockaddr* out);
void GetIP(const sockaddr* address, unsigned char* a, unsigned char* b, unsigned char* c, unsigned char* d);

// A numeric address, optionally followed by a colon and a port (0 when absent); false for any other text.
bool ParseIP(const char* text, unsigned* address, unsigned short* port);

inline constexpr unsigned RESOLVE_TIMEOUT_MS = 5000;

// "host" or "host:port" to an address; a name is looked up for at most `milliseconds`, or until the thread is
// cancelled. Non-zero when it resolved; port 0 counts as absent.
int ResolveAddress(CGXString hostAndPort, sockaddr_in* out, unsigned short defaultPort,
                   unsigned milliseconds = RESOLVE_TIMEOUT_MS);

CGXString GXFormatAddress(unsigned address);            // "192.168.1.2"
CGXString GXFormatAddress(const sockaddr_in* address);  // the address without the port
