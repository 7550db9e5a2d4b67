// H.264 from RTP packets made by hand after RFC 3550 5.1 and RFC 6184 5.6 to 5.8.
#include "host/frame.h"

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
      {"two contributing sources", RTP(1, "CSR1CSR2" + unit, 0x82), {unit}},
      {"extension", RTP(1, header4 + unit, 0x90), {unit}},
      {"sources, extension and padding", RTP(1, "CSR1" + header4 + unit + "\0\0\3"s, 0xb1), {unit}},
      {"padding longer than the packet", RTP(1, unit + "\xff"s, 0xa0), {}},
      {"padding of nothing", RTP(1, unit + "\0"s, 0xa0), {}},
      {"padding that leaves nothing", RTP(1, "\1"s, 0xa0), {}},
      {"extension beyond the packet", RTP(1, "\0\0\xff\xff"s + unit, 0x90), {}},
      {"extension cut off", RTP(1, "\0\0"s, 0x90), {}},
      {"sources beyond the packet", RTP(1, unit, 0x8f), {}},
      {"another version", RTP(1, unit, 0x40), {}},
      {"header only", RTP(1, ""), {}},
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
      {"fragment that is start and end",
       RTP(1,
           "\x7c\xc5"
           "abc"s),
       {"\x65"
        "abc"s}},
      {"fragment without header", RTP(1, "\x7c"s), {}},
      {"fragment of an aggregate", RTP(1, "\x7c\xd8\0\1a"s), {}},
      {"end without start",
       RTP(1,
           "\x7c\x45"
           "abc"s),
       {}},
      {"as large as fits", RTP(1, Unit(0x65, CAPACITY - 3)), {Unit(0x65, CAPACITY - 3)}},
      {"a byte too large", RTP(1, Unit(0x65, CAPACITY - 2)), {}},
  };
  for (const auto& [name, packet, expected] : cases) EXPECT_EQ(FeedAll({packet}), expected) << name;
}

TEST(Depacketizer, PayloadType) {
  CH264Depacketizer only97(97);
  EXPECT_EQ(Feed(only97, RTP(1,
                             "\x65"
                             "abc"s,
                             0x80, 96)),
            Units{});
  EXPECT_EQ(Feed(only97, RTP(2,
                             "\x65"
                             "abc"s,
                             0x80, 97 | 0x80)),
            Units{"\x65"
                  "abc"s});
}

TEST(Depacketizer, RestOfAnAggregateEndsWithTheNextPacket) {
  CH264Depacketizer depacketizer(-1);
  unsigned char out[100];
  const std::string first = RTP(1, STAP({"\x67sps"s, "\x68pps"s})), second = RTP(2, "\x65idr"s);
  const auto process = [&](const std::string& packet) {
    return depacketizer.ProcessRTP(reinterpret_cast<const unsigned char*>(packet.data()),
                                   static_cast<int>(packet.size()), out, sizeof out);
  };
  EXPECT_EQ(process(first), 7);
  EXPECT_EQ(process(second), 7);
  EXPECT_EQ(out[3], 0x65);
  EXPECT_EQ(depacketizer.ProcessRTP(nullptr, 0, out, sizeof out), 0);
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

TEST(Depacketizer, LossCostsTheDamagedUnitOnly) {
  const Stream stream = MakeStream();
  EXPECT_EQ(FeedAll(stream.Packets), stream.All);
  for (size_t lost = 0; lost < stream.Packets.size(); ++lost) {
    Units packets = stream.Packets;
    packets.erase(packets.begin() + static_cast<long>(lost));
    EXPECT_EQ(FeedAll(packets), Without(stream.All, stream.Of[lost])) << "lost " << lost;
  }
  for (size_t lost = 0; lost + 1 < stream.Packets.size(); ++lost) {
    Units packets = stream.Packets;
    packets.erase(packets.begin() + static_cast<long>(lost), packets.begin() + static_cast<long>(lost) + 2);
    EXPECT_EQ(FeedAll(packets), Without(Without(stream.All, stream.Of[lost]), stream.Of[lost + 1]))
        << "lost two from " << lost;
  }
}

TEST(Depacketizer, FragmentsThatComeTwiceChangeNothing) {
  const Stream stream = MakeStream();
  for (size_t twice = 1; twice < stream.Packets.size(); ++twice) {
    if ((stream.Packets[twice][12] & 0x1f) != 28) continue;
    Units packets = stream.Packets;
    packets.insert(packets.begin() + static_cast<long>(twice) + 1, stream.Packets[twice]);
    EXPECT_EQ(FeedAll(packets), stream.All) << "twice " << twice;
  }
}

TEST(Depacketizer, ReorderingCostsTheUnitsInvolvedOnly) {
  const Stream stream = MakeStream();
  for (size_t first = 0; first + 1 < stream.Packets.size(); ++first) {
    Units packets = stream.Packets;
    std::swap(packets[first], packets[first + 1]);
    const Units got = FeedAll(packets);
    for (const std::string& unit : Without(Without(stream.All, stream.Of[first]), stream.Of[first + 1]))
      EXPECT_EQ(std::count(got.begin(), got.end(), unit), 1) << "swapped at " << first;
    for (const std::string& unit : got)
      EXPECT_EQ(std::count(stream.All.begin(), stream.All.end(), unit), 1) << "a made-up unit at " << first;
  }
}

TEST(Depacketizer, ChangeOfTypeWithinAUnitDropsIt) {
  const Units idr = FU(Unit(0x65, 90), 3), slice = FU(Unit(0x41, 90), 3);
  EXPECT_EQ(FeedAll({RTP(1, idr[0]), RTP(2, slice[1]), RTP(3, idr[2])}), Units{});
}

TEST(Depacketizer, RestartedSenderIsFollowed) {
  const Units fragments = FU(Unit(0x65, 90), 3);
  Units packets;
  for (unsigned base : {30000u, 20000u, 29990u})
    for (unsigned i = 0; i < 3; ++i) packets.push_back(RTP(base + i, fragments[i]));
  packets.erase(packets.begin() + 2);  // the first unit stays open
  packets.erase(packets.begin() + 4);  // the second too; the third begins far ahead
  EXPECT_EQ(FeedAll(packets), Units{Unit(0x65, 90)});
}

TEST(Depacketizer, EndlessUnitIsDropped) {
  CH264Depacketizer depacketizer(-1);
  std::vector<unsigned char> out(4 << 20);
  unsigned sequence = 0;
  const auto feed = [&](const std::string& payload) {
    const std::string packet = RTP(sequence++ & 0xffff, payload);
    return depacketizer.ProcessRTP(reinterpret_cast<const unsigned char*>(packet.data()),
                                   static_cast<int>(packet.size()), out.data(), static_cast<int>(out.size()));
  };
  feed("\x7c\x85"s);
  for (int i = 0; i < 1100; ++i) EXPECT_EQ(feed("\x7c\x05"s + std::string(1000, 'x')), 0);
  EXPECT_EQ(feed("\x7c\x45"s), 0);
  EXPECT_EQ(feed("\x41next"s), 8);
}

}  // namespace
