// The alarm datagrams of Orvell cameras. Numbers are in network order.
#pragma once

#include "host/base/gxstring.h"

// A read cursor over one received datagram, which stays the caller's. Beyond its end everything reads as zero,
// and nothing outside of it is ever read.
class COrvellPacket {
 public:
  COrvellPacket(unsigned char* data, int length);

  unsigned char ReadBYTE();
  unsigned short ReadWORD();
  int ReadInt();
  bool ReadData(unsigned char* buffer, int count);  // false, and nothing copied, when fewer remain
  void Skip(int count);                             // may go beyond the end; never back
  unsigned char* ReadPos() const;                   // the byte at the cursor, at most the end
  int Remaining() const { return m_iPosition < m_iLength ? m_iLength - m_iPosition : 0; }

  // The value in double quotes that follows the key in the text; empty when the key or a quote is missing.
  static CGXString Extract(const char* key, const char* text);

 private:
  unsigned char* Take(int count);  // the next bytes, and the cursor behind them; null when fewer remain

  unsigned char* m_pData;
  int m_iLength;
  int m_iPosition = 0;
};

// What one alarm datagram says.
struct COrvellAlarm {
  static constexpr int MESSAGE_CODE = 554;
  static constexpr int TEXT_LIMIT = 2048;  // texts are shorter than this

  CGXString DeviceID;  // serial number of the camera that sends it
  bool Active = false;

  // False for any other datagram.
  bool Read(unsigned char* data, int length);
};
