// Alarm datagrams: the first byte tells how far the cursor is let run on, the rest is the datagram.
#include "alarm/orvell_packet.h"
#include "fuzz/fuzz_input.h"

#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace {

// Whatever is read in whatever order, the cursor stays within the datagram and what lies beyond it reads as 0.
void RunCursor(CFuzzInput steps, std::vector<unsigned char>& bytes) {
  COrvellPacket packet(bytes.data(), static_cast<int>(bytes.size()));
  unsigned char block[256];
  while (!steps.IsEmpty()) {
    const int left = packet.Remaining(), count = static_cast<int>(steps.Byte());
    int value = 0, needed = 0;
    switch (count % 6) {
      case 0:
        value = packet.ReadBYTE(), needed = 1;
        break;
      case 1:
        value = packet.ReadWORD(), needed = 2;
        break;
      case 2:
        value = packet.ReadInt(), needed = 4;
        break;
      case 3:
        Require(packet.ReadData(block, count) == (left >= count));
        break;
      case 4:
        packet.Skip(count);
        break;
      default:
        packet.Skip(count % 4 == 1 ? INT_MAX : -count);
    }
    Require(left >= needed ? packet.Remaining() <= left - needed : value == 0);
    Require(packet.ReadPos() == bytes.data() + bytes.size() - packet.Remaining());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CFuzzInput input(data, size);
  CFuzzInput steps(data, std::min<size_t>(input.Byte(), size));
  const std::span<const uint8_t> datagram = input.Take(size);
  std::vector<unsigned char> bytes(datagram.begin(), datagram.end());  // ends where ASan sees it
  bytes.shrink_to_fit();
  COrvellAlarm alarm;
  if (alarm.Read(bytes.data(), static_cast<int>(bytes.size()))) {
    const std::string all(bytes.begin(), bytes.end());
    Require(bytes.size() >= 100 && all.compare(24, 4, std::string("\0\0\2\x2a", 4)) == 0);
    Require(all.find(alarm.DeviceID.Str()) != std::string::npos);
    Require(!alarm.Active || all.find("AlarmFlag") != std::string::npos);
  } else {
    Require(alarm.DeviceID.IsEmpty() && !alarm.Active);
  }
  RunCursor(steps, bytes);
  return 0;
}
