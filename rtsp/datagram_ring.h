// Datagrams received from a socket several at a time, handed out one by one.
#pragma once

#include <cstddef>
#include <memory>

class CDatagramRing {
 public:
  CDatagramRing();
  ~CDatagramRing();

  bool IsEmpty() const { return m_iNext == m_iCount; }

  // Into the empty ring: what the socket holds now, up to a fixed number of datagrams, each cut to `size`
  // bytes. Never waits. False when nothing came.
  bool Receive(int socket, int size);

  // The next datagram of a ring that is not empty, cut to `size` bytes; its length.
  int Take(unsigned char* buffer, int size);

 private:
  struct Slots;
  std::unique_ptr<Slots> m_pSlots;  // allocated at the first use: only UDP sessions need it
  int m_iNext = 0, m_iCount = 0;
};
