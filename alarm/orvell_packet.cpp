#include "alarm/orvell_packet.h"

#include "util/bytes.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr int BLOCK_BYTES = 32;
constexpr int UNUSED_BYTES = 3;

}  // namespace

COrvellPacket::COrvellPacket(unsigned char* data, int length)
    : m_pData(data), m_iLength(data != nullptr ? std::max(length, 0) : 0) {}

unsigned char* COrvellPacket::Take(int count) {
  if (count < 0 || Remaining() < count) return nullptr;
  unsigned char* const from = m_pData + m_iPosition;
  m_iPosition += count;
  return from;
}

unsigned char COrvellPacket::ReadBYTE() {
  const unsigned char* const from = Take(1);
  return from != nullptr ? *from : 0;
}

unsigned short COrvellPacket::ReadWORD() {
  const unsigned char* const from = Take(2);
  return from != nullptr ? ReadBE16(from) : 0;
}

int COrvellPacket::ReadInt() {
  const unsigned char* const from = Take(4);
  return from != nullptr ? static_cast<int>(ReadBE32(from)) : 0;
}

bool COrvellPacket::ReadData(unsigned char* buffer, int count) {
  const unsigned char* const from = Take(count);
  if (from == nullptr) return false;
  std::copy_n(from, count, buffer);
  return true;
}

void COrvellPacket::Skip(int count) {
  m_iPosition += std::clamp(count, 0, INT_MAX - m_iPosition);
}

unsigned char* COrvellPacket::ReadPos() const {
  return m_pData + std::min(m_iPosition, m_iLength);
}

CGXString COrvellPacket::Extract(const char* key, const char* text) {
  const char* const found = std::strstr(text, key);
  const char* const open = found != nullptr ? std::strchr(found + std::strlen(key), '"') : nullptr;
  const char* const close = open != nullptr ? std::strchr(open + 1, '"') : nullptr;
  return close != nullptr ? CGXString(open + 1, static_cast<int>(close - open - 1)) : CGXString();
}

bool COrvellAlarm::Read(unsigned char* data, int length) {
  COrvellPacket packet(data, length);
  unsigned char block[BLOCK_BYTES];
  packet.ReadBYTE();
  packet.ReadBYTE();
  packet.ReadInt();
  packet.ReadInt();
  packet.ReadBYTE();
  packet.ReadInt();
  packet.ReadWORD();
  packet.Skip(UNUSED_BYTES);
  packet.ReadInt();
  if (packet.ReadInt() != MESSAGE_CODE) return false;
  packet.ReadBYTE();
  // A block that was cut would not move the cursor, and its bytes pass for the text's length.
  if (!packet.ReadData(block, BLOCK_BYTES) || !packet.ReadData(block, BLOCK_BYTES)) return false;
  packet.ReadBYTE();
  packet.ReadWORD();
  const int textLength = packet.ReadInt();
  if (textLength < 1 || textLength >= TEXT_LIMIT) return false;
  // The length only says that there is a text, which ends with the datagram or its first zero byte.
  const std::string text(reinterpret_cast<const char*>(packet.ReadPos()),
                         static_cast<size_t>(packet.Remaining()));
  DeviceID = COrvellPacket::Extract("AlarmInfoEx DeviceId", text.c_str());
  Active = std::atoi(COrvellPacket::Extract("AlarmFlag", text.c_str())) == 1;
  return true;
}
