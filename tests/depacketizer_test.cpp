// H.264 from RTP packets made by hand after RFC 3550 5.1 and RFC 6184 5.6 to 5.8.
#include "host/video/depacketizer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace std::string_literals;
using Units = std::vector<std::string>;

constexpr int CAPACITY = 4000;

std::string RTP(unsigned sequence, const std::string& payload, unsigned char first = 0x80,
                unsigned char type = 96) {
  std::string packet;
  packet += static_cast<char>(first);
  packet += static_cast<char>(type);
  packet += static_cast<char>(sequence >> 8 & 0xff);
  packet += static_cast<char>(sequence & 0xff);
  return packet + "TIMESSRC" + payload;
}

std::string STAP(const Units& units) {
  std::string payload = "\x78"s;
  for (const std::string& unit : units) {
    payload += static_cast<char>(unit.size() >> 8);
    payload += static_cast<char>(unit.size() & 0xff);
    payload += unit;
  }
  return payload;
}

// The unit in `count` fragments.
Units FU(const std::string& unit, size_t count) {
  Units fragments;
  const size_t body = unit.size() - 1;
  for (size_t i = 0; i < count; ++i) {
    const size_t begin = body * i / count, end = body * (i + 1) / count;
    std::string fragment{static_cast<char>((unit[0] & 0xe0) | 28)};
    fragment += static_cast<char>((unit[0] & 0x1f) | (i == 0 ? 0x80 : 0) | (i + 1 == count ? 0x40 : 0));
    fragments.push_back(fragment + unit.substr(1 + begin, end - begin));
  }
  return fragments;
}

Units Feed(CH264Depacketizer& depacketizer, const std::string& packet, int capacity = CAPACITY) {
  Units units;
  // Of exactly that size, so that AddressSanitizer sees a byte too many.
  std::vector<unsigned char> out(static_cast<size_t>(capacity));
  const std::vector<unsigned char> in(packet.begin(), packet.end());
  int length = depacketizer.ProcessRTP(in.data(), static_cast<int>(in.size()), out.data(), capacity);
  for (; length > 0; length = depacketizer.ProcessRTP(nullptr, 0, out.data(), capacity)) {
    const std::string text(out.begin(), out.begin() + length);
    EXPECT_EQ(text.substr(0, 3), "\0\0\1"s);
    units.push_back(text.substr(3));
  }
  return units;
}

Units FeedAll(const Units& packets) {
  CH264Depacketizer depacketizer(-1);
  Units units;
  for (const std::string& packet : packets)
    for (std::string& unit : Feed(depacketizer, packet)) units.push_back(std::move(unit));
  return units;
}

std::string Unit(unsigned char header, size_t bytes) {
  std::string unit(1, static_cast<char>(header));
  for (size_t i = 1; i < bytes; ++i) unit += static_cast<char>(i * 7 + header);
  return unit;
}

TEST(Depacketizer, OnePacket) {
  const std::string unit = Unit(0x65, 40);
  const std::string header4 = "\xde\xad\x00\x02"s + "EXTENDED";  // an extension of two words, RFC 3550 5.3.1
  const struct {
    const char* name;
    std::string packet;
    Units expected;
  } cases[] = {
      {"single", RTP(1, unit), {unit}},
      {"single, one byte", RTP(1, "\x09"s), {"\x09"s}},
      {"sources, extension and padding", RTP(1, "CSR1" + header4 + unit + "\0\0\3"s, 0xb1), {unit}},
      {"padding longer than the packet", RTP(1, unit + "\xff"s, 0xa0), {}},
      {"padding of nothing", RTP(1, unit + "\0"s, 0xa0), {}},
      {"padding that leaves nothing", RTP(1, "\1"s, 0xa0), {}},
      {"extension beyond the packet", RTP(1, "\0\0\xff\xff"s + unit, 0x90), {}},
      {"extension cut off", RTP(1, "\0\0"s, 0x90), {}},
      {"sources beyond the packet", RTP(1, unit, 0x8f), {}},
      {"another version", RTP(1, unit, 0x40), {}},
      {"cut header", RTP(1, "").substr(0, 11), {}},
      {"nothing", "", {}},
      {"reserved type 0", RTP(1, "\x60zero"s), {}},
      {"STAP-B", RTP(1, "\x79zz\0\1a"s), {}},
      {"FU-B", RTP(1, "\x7d\x85zzabc"s), {}},
      {"aggregate", RTP(1, STAP({"\x67sps"s, "\x68pps"s, unit})), {"\x67sps"s, "\x68pps"s, unit}},
      {"aggregate with an empty unit", RTP(1, STAP({"\x67sps"s, "", "\x68pps"s})), {"\x67sps"s, "\x68pps"s}},
      {"aggregate with a nested one", RTP(1, STAP({STAP({"\x67x"s}), "\x68pps"s})), {"\x68pps"s}},
      {"aggregate with a size too large", RTP(1, STAP({"\x67sps"s}) + "\0\5\x68pp"s), {"\x67sps"s}},
      {"aggregate with a rest", RTP(1, STAP({"\x67sps"s}) + "\0"s), {"\x67sps"s}},
      {"aggregate with a unit that does not fit",
       RTP(1, STAP({"\x67sps"s, Unit(0x65, CAPACITY), "\x68pps"s})),
       {"\x67sps"s, "\x68pps"s}},
      {"empty aggregate", RTP(1, "\x78"s), {}},
      {"fragment that is start and end", RTP(1, "\x7c\xc5xyz"s), {"\x65xyz"s}},
      {"fragment without header", RTP(1, "\x7c"s), {}},
      {"fragment of an aggregate", RTP(1, "\x7c\xd8\0\1a"s), {}},
      {"end without start", RTP(1, "\x7c\x45xyz"s), {}},
      {"as large as fits", RTP(1, Unit(0x65, CAPACITY - 3)), {Unit(0x65, CAPACITY - 3)}},
      {"a byte too large", RTP(1, Unit(0x65, CAPACITY - 2)), {}},
  };
  for (const auto& [name, packet, expected] : cases) EXPECT_EQ(FeedAll({packet}), expected) << name;
}

// A stream whose sequence number wraps within a fragmented unit: which units each of its packets carries, and
// all its packets.
struct Stream {
  Units Packets, All;
  std::vector<Units> Of;  // the units that are damaged when that packet is missing

  void Add(const std::string& payload, const Units& units) {
    Packets.push_back(RTP(static_cast<unsigned>(65532 + Packets.size()) & 0xffff, payload));
    Of.push_back(units);
  }
};

Stream MakeStream() {
  Stream stream;
  const std::string idr = Unit(0x65, 1500), slice = Unit(0x41, 900), late = Unit(0x61, 700);
  stream.Add(STAP({"\x67sps"s, "\x68pps"s}), {"\x67sps"s, "\x68pps"s});
  for (const std::string& fragment : FU(idr, 5)) stream.Add(fragment, {idr});
  for (const std::string& fragment : FU(slice, 2)) stream.Add(fragment, {slice});
  stream.Add("\x06sei"s, {"\x06sei"s});
  for (const std::string& fragment : FU(late, 4)) stream.Add(fragment, {late});
  stream.Add("\x41last"s, {"\x41last"s});
  stream.All = {"\x67sps"s, "\x68pps"s, idr, slice, "\x06sei"s, late, "\x41last"s};
  return stream;
}

Units Without(Units all, const Units& damaged) {
  for (const std::string& unit : damaged) std::erase(all, unit);
  return all;
}

// A stream with one packet lost, two lost, one that came twice, two that changed places: only their own units
// are damaged, and none is made up.
TEST(Depacketizer, LossAndDisorderCostTheDamagedUnitsOnly) {
  const Stream stream = MakeStream();
  EXPECT_EQ(FeedAll(stream.Packets), stream.All);
  for (size_t at = 0; at + 1 < stream.Packets.size(); ++at) {
    SCOPED_TRACE(at);
    const Units without = Without(stream.All, stream.Of[at]), neither = Without(without, stream.Of[at + 1]);
    const auto place = static_cast<long>(at);
    Units packets = stream.Packets;
    packets.erase(packets.begin() + place);
    EXPECT_EQ(FeedAll(packets), without);
    packets.erase(packets.begin() + place);
    EXPECT_EQ(FeedAll(packets), neither);
    packets = stream.Packets;
    packets.insert(packets.begin() + place, packets[at]);
    EXPECT_TRUE((packets[at][12] & 0x1f) != 28 || FeedAll(packets) == stream.All);
    packets = stream.Packets;
    std::swap(packets[at], packets[at + 1]);
    const Units got = FeedAll(packets);
    for (const std::string& unit : neither) EXPECT_EQ(std::count(got.begin(), got.end(), unit), 1);
    for (const std::string& unit : got) EXPECT_EQ(std::count(stream.All.begin(), stream.All.end(), unit), 1);
  }
}

TEST(Depacketizer, FollowsARestartedSenderAndOnlyItsPayloadType) {
  const Units idr = FU(Unit(0x65, 90), 3), slice = FU(Unit(0x41, 90), 3);
  EXPECT_EQ(FeedAll({RTP(1, idr[0]), RTP(2, slice[1]), RTP(3, idr[2])}),
            Units{});  // another type within a unit
  // Two units stay open, the third begins far ahead.
  EXPECT_EQ(FeedAll({RTP(30000, idr[0]), RTP(30001, idr[1]), RTP(20000, idr[0]), RTP(20001, idr[1]),
                     RTP(29990, idr[0]), RTP(29991, idr[1]), RTP(29992, idr[2])}),
            Units{Unit(0x65, 90)});
  CH264Depacketizer only97(97);
  EXPECT_EQ(Feed(only97, RTP(1, "\x65x"s, 0x80, 96)), Units{});
  EXPECT_EQ(Feed(only97, RTP(2, "\x65x"s, 0x80, 97 | 0x80)), Units{"\x65x"s});
}

TEST(Depacketizer, EndlessUnitIsDropped) {
  CH264Depacketizer depacketizer(-1);
  unsigned sequence = 0;
  const auto feed = [&](const std::string& payload) {
    return Feed(depacketizer, RTP(sequence++ & 0xffff, payload), 2 << 20);
  };
  feed("\x7c\x85"s);
  for (int i = 0; i < 1100; ++i) EXPECT_TRUE(feed("\x7c\x05"s + std::string(1000, 'x')).empty());
  EXPECT_TRUE(feed("\x7c\x45"s).empty());
  EXPECT_EQ(feed("\x41next"s), Units{"\x41next"s});
  // What is left of an aggregate ends with the next packet.
  unsigned char out[100];
  for (const std::string& packet : {RTP(1, STAP({"\x67sps"s, "\x68pps"s})), RTP(2, "\x65idr"s)})
    EXPECT_EQ(depacketizer.ProcessRTP(reinterpret_cast<const unsigned char*>(packet.data()),
                                      static_cast<int>(packet.size()), out, sizeof out),
              7);
  EXPECT_EQ(out[3], 0x65);
  EXPECT_EQ(depacketizer.ProcessRTP(nullptr, 0, out, sizeof out), 0);
}

}  // namespace
