// A socket that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

class COwnedSocket {
 public:
  explicit COwnedSocket(int socket = -1) : m_iSocket(socket) {}
  ~COwnedSocket() { Close(); }
  COwnedSocket(COwnedSocket&& other) noexcept : m_iSocket(std::exchange(other.m_iSocket, -1)) {}
  COwnedSocket& operator=(COwnedSocket&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.m_iSocket, -1));
    return *this;
  }

  int Get() const { return m_iSocket; }
  bool IsOpen() const { return m_iSocket != -1; }
  void Close() { Reset(-1); }
  int Release() { return std::exchange(m_iSocket, -1); }  // the caller closes it
  void Reset(int socket) {
    if (m_iSocket != -1) close(m_iSocket);
    m_iSocket = socket;
  }

 private:
  int m_iSocket;
};
