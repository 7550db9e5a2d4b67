#include "rtsp/datagram_ring.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {
constexpr int MAX_DATAGRAMS = 32;
}

struct CDatagramRing::Slots {
  std::vector<unsigned char> Data;
  iovec Vectors[MAX_DATAGRAMS];
  mmsghdr Messages[MAX_DATAGRAMS];
  sockaddr_in Senders[MAX_DATAGRAMS];

  // Room of `size` bytes a datagram.
  void Arrange(size_t size) {
    if (Data.size() == size * MAX_DATAGRAMS) return;
    Data.assign(size * MAX_DATAGRAMS, 0);
    for (size_t i = 0; i < MAX_DATAGRAMS; ++i) {
      Vectors[i] = {Data.data() + i * size, size};
      Messages[i] = {};
      Messages[i].msg_hdr.msg_iov = &Vectors[i];
      Messages[i].msg_hdr.msg_iovlen = 1;
      Messages[i].msg_hdr.msg_name = &Senders[i];
      Messages[i].msg_hdr.msg_namelen = sizeof Senders[i];
    }
  }
};

CDatagramRing::CDatagramRing() = default;
CDatagramRing::~CDatagramRing() = default;

bool CDatagramRing::Receive(int socket, int size, in_addr sender) {
  if (m_pSlots == nullptr) m_pSlots = std::make_unique<Slots>();
  m_pSlots->Arrange(static_cast<size_t>(size));
  m_iNext = 0;
  m_iCount = std::max(0, recvmmsg(socket, m_pSlots->Messages, MAX_DATAGRAMS, MSG_DONTWAIT, nullptr));
  m_Sender = sender;
  SkipOthers();
  return !IsEmpty();
}

void CDatagramRing::SkipOthers() {
  while (!IsEmpty() && m_pSlots->Senders[m_iNext].sin_addr.s_addr != m_Sender.s_addr) ++m_iNext;
}

int CDatagramRing::Take(unsigned char* buffer, int size) {
  const mmsghdr& message = m_pSlots->Messages[m_iNext++];
  const int length = std::min(static_cast<int>(message.msg_len), size);
  std::memcpy(buffer, message.msg_hdr.msg_iov->iov_base, static_cast<size_t>(length));
  SkipOthers();
  return length;
}
