// Datagrams received from a socket several at a time, handed out one by one.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <memory>

class CDatagramRing {
 public:
  CDatagramRing();
  ~CDatagramRing();

  bool IsEmpty() const { return m_iNext == m_iCount; }

  // Into the empty ring: what the socket holds now from that sender, up to a fixed number of datagrams, each
  // cut to `size` bytes; what others sent is dropped. Never waits. False when nothing came.
  bool Receive(int socket, int size, in_addr sender);

  // The next datagram of a ring that is not empty, cut to `size` bytes; its length.
  int Take(unsigned char* buffer, int size);

 private:
  struct Slots;
  void SkipOthers();

  std::unique_ptr<Slots> m_pSlots;  // allocated at the first use: only UDP sessions need it
  in_addr m_Sender{};
  int m_iNext = 0, m_iCount = 0;
};
