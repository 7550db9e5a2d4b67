// The host's texts, lists, records, calendar time, digests and addresses.
#include "host/gxassert.h"
#include "host/gxfile.h"
#include "host/gxlist.h"
#include "host/gxmsg.h"
#include "host/gxstring.h"
#include "host/gxtime.h"
#include "host/md5.h"
#include "host/rtsp_profile.h"
#include "host/socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

namespace {

TEST(String, FormatTakesAnyLengthAndItsOwnText) {
  CGXString text("abc");
  text.Format("<%s|%s>", static_cast<const char*>(text), std::string(5000, 'x').c_str());
  EXPECT_EQ(text.GetLength(), 5006);
  EXPECT_TRUE(text.Left(5) == "<abc|");
}

TEST(String, CutsStayInsideTheText) {
  const CGXString text("camera");
  EXPECT_TRUE(text.Left(3) == "cam" && text.Left(99) == "camera" && text.Left(-1) == "");
  EXPECT_TRUE(text.Right(3) == "era" && text.Right(99) == "camera" && text.Right(-1) == "");
  EXPECT_TRUE(text.Mid(2) == "mera" && text.Mid(2, 2) == "me" && text.Mid(9) == "" && text.Mid(4, 99) == "ra");
}

TEST(String, FindTable) {
  const CGXString text("rtsp://10.0.0.5/live/rtsp");
  const struct {
    const char* What;
    int Start, Position;
  } cases[] = {{"rtsp", 0, 0}, {"rtsp", 1, 21}, {"/", 7, 15}, {"none", 0, -1}, {"p", 24, 24},
               {"p", 25, -1},  {"r", 999, -1},  {"r", -5, 0}, {"", 3, 3},      {nullptr, 0, -1}};
  for (const auto& c : cases)
    EXPECT_EQ(text.Find(c.What, c.Start), c.Position) << (c.What != nullptr ? c.What : "null") << c.Start;
  EXPECT_EQ(text.Find(':'), 4);
  EXPECT_EQ(text.Find('?'), -1);
}

TEST(String, TrimLeftOfATextTakesThatPrefixOnce) {
  const struct {
    const char *Text, *Prefix, *Left;
  } cases[] = {{"rtsp://rtsp://host", "rtsp://", "rtsp://host"},
               {"ptsr/host", "rtsp://", "ptsr/host"},
               {"RTSP://host", "rtsp://", "RTSP://host"},
               {"rtsp:/", "rtsp://", "rtsp:/"},
               {"x", nullptr, "x"},
               {"", "rtsp://", ""}};
  for (const auto& c : cases) {
    CGXString text(c.Text);
    text.TrimLeft(c.Prefix);
    EXPECT_STREQ(text, c.Left);
  }
  CGXString slashes("///host//");
  slashes.TrimLeft('/');
  slashes.TrimRight('/');
  EXPECT_STREQ(slashes, "host");
  CGXString blank(" \t\r\n a b \r\n");
  blank.TrimLeft();
  blank.TrimRight();
  EXPECT_STREQ(blank, "a b");
  CGXString nothing("  ");
  nothing.TrimRight();
  EXPECT_TRUE(nothing.IsEmpty());
}

TEST(String, ComparesLikeC) {
  EXPECT_EQ(CGXString("Host").CompareNoCase("hOST"), 0);
  EXPECT_LT(CGXString("a").CompareNoCase("B"), 0);
  EXPECT_NE(CGXString("Host").Compare("host"), 0);
  EXPECT_GT(CGXString("b").Compare(nullptr), 0);
  EXPECT_LT(CGXString("a").CompareNoCase("\xC3\xA9"), 0);
}

TEST(String, BufferEndsWhereItWasWritten) {
  CGXString text("old");
  std::strcpy(text.GetBufferCHAR(64), "written");
  text.ReleaseBuffer();
  EXPECT_STREQ(text, "written");
  EXPECT_EQ(text.GetLength(), 7);
  std::memset(text.GetBufferCHAR(16), 'x', 16);
  text.ReleaseBuffer(99);
  EXPECT_EQ(text.GetLength(), 16);
}

TEST(String, WideTextSurvivesTheRoundTrip) {
  const std::wstring wide = L"T\u00fcr \u65e5\U0001F4F7";
  const CGXString text(wide.c_str());
  EXPECT_STREQ(text, "T\xC3\xBCr \xE6\x97\xA5\xF0\x9F\x93\xB7");
  EXPECT_EQ(text.Wide(), wide);
  // Overlong, cut, stray and surrogate bytes become replacement characters, never another text.
  EXPECT_EQ(CGXString("a\xC0\xAF").Wide(), L"a\uFFFD\uFFFD");
  EXPECT_EQ(CGXString("\xE6\x97").Wide(), L"\uFFFD\uFFFD");
  EXPECT_EQ(CGXString("\xED\xA0\x80").Wide().front(), L'\uFFFD');
}

TEST(List, CursorVisitsAllInOrder) {
  int a = 0, b = 0, c = 0;
  CGXObList list;
  EXPECT_FALSE(list.GetHeadPosition());
  for (int* object : {&a, &b, &c, &b}) list.AddTail(object);
  EXPECT_TRUE(list.Remove(&b));
  EXPECT_FALSE(list.Remove(&list));
  std::vector<void*> seen;
  for (CGXPos position = list.GetHeadPosition(); position;) seen.push_back(list.GetNext(position));
  EXPECT_EQ(seen, (std::vector<void*>{&a, &c, &b}));
  EXPECT_EQ(list.GetAt(1), &c);
  EXPECT_EQ(list.GetAt(3), nullptr);
  EXPECT_EQ(list.RemoveHead(), &a);
  EXPECT_EQ(list.GetCount(), 2);
}

TEST(Records, AnItemOfTheOtherKindStays) {
  CGXMSG msg;
  msg.PutInt(-7);
  msg.PutString("text");
  EXPECT_TRUE(msg.GetString().IsEmpty());
  EXPECT_EQ(msg.GetInt(), -7);
  EXPECT_EQ(msg.GetInt(), 0);
  EXPECT_STREQ(msg.GetString(), "text");
  EXPECT_EQ(msg.GetInt(), 0);

  CGXFile file(msg.Items(), 700);
  int value = 5;
  CGXString text("kept");
  EXPECT_EQ(file.Version(), 700);
  EXPECT_EQ(file.ReadString(&text), 0);
  EXPECT_STREQ(text, "kept");
  EXPECT_EQ(file.ReadInt(&value), 1);
  EXPECT_EQ(value, -7);
  EXPECT_EQ(file.ReadString(&text), 1);
  EXPECT_EQ(file.ReadInt(&value), 0);
}

TEST(Records, AFullDiskFailsFromItsItemOn) {
  CGXFile file;
  file.FailWritesFrom(1);
  EXPECT_GE(file.Version(), 813);
  EXPECT_EQ(file.WriteInt(1), 1);
  EXPECT_EQ(file.WriteString("x"), 0);
  EXPECT_EQ(file.WriteInt(2), 0);
  EXPECT_EQ(file.Items().Items().size(), 1u);
}

TEST(Time, SecondsCarryThroughTheCalendar) {
  const struct {
    CGXTime From;
    int Seconds;
    const char* To;
  } cases[] = {
      {{2026, 12, 31, 23, 59, 59, 7}, 1, "2027-1-1 0:0:0.7"},
      {{2024, 2, 28, 23, 59, 59}, 1, "2024-2-29 0:0:0.0"},
      {{2023, 2, 28, 23, 59, 59}, 1, "2023-3-1 0:0:0.0"},
      {{2100, 2, 28, 12, 0, 0}, 86400, "2100-3-1 12:0:0.0"},
      {{2000, 2, 28, 12, 0, 0}, 86400, "2000-2-29 12:0:0.0"},
      {{2027, 1, 1, 0, 0, 0}, -1, "2026-12-31 23:59:59.0"},
      {{1970, 1, 1, 0, 0, 0}, INT_MAX, "2038-1-19 3:14:7.0"},
      {{1970, 1, 1, 0, 0, 0}, INT_MIN, "1901-12-13 20:45:52.0"},
      {{2026, 11, 22, 10, 20, 30}, 0, "2026-11-22 10:20:30.0"},
      // As cameras with an unset clock say it.
      {{2026, 0, 0, 0, 0, 0}, 0, "2025-11-30 0:0:0.0"},
      {{2026, 13, 32, 24, 60, 60}, 0, "2027-2-2 1:1:0.0"},
  };
  for (const auto& c : cases) {
    CGXTime time = c.From;
    time.AddSeconds(c.Seconds);
    CGXString text;
    text.Format("%d-%d-%d %d:%d:%d.%d", time.Year(), time.Month(), time.Day(), time.Hour(), time.Minute(),
                time.Second(), time.MSecond());
    EXPECT_STREQ(text, c.To);
  }
}

TEST(Time, WildFieldsStayInRange) {
  for (const int wild : {INT_MAX, INT_MIN, -1, 999999}) {
    CGXTime time(wild, wild, wild, wild, wild, wild, 0);
    time.AddSeconds(wild);
    EXPECT_TRUE(time.Month() >= 1 && time.Month() <= 12) << wild;
    EXPECT_TRUE(time.Day() >= 1 && time.Day() <= 31) << wild;
    EXPECT_TRUE(time.Hour() >= 0 && time.Hour() <= 23 && time.Second() >= 0 && time.Second() <= 59) << wild;
  }
}

TEST(Time, AgreesWithTheSystemsCalendar) {
  CGXTime time(1970, 1, 1, 0, 0, 0);
  time_t clock = 0;
  for (int i = 0; i < 20000; ++i) {
    constexpr int STEP = 107159;  // 1.24 days: meets every date of 68 years' months
    time.AddSeconds(STEP);
    clock += STEP;
    std::tm expected{};
    gmtime_r(&clock, &expected);
    ASSERT_EQ(time.Year(), expected.tm_year + 1900);
    ASSERT_EQ(time.Month(), expected.tm_mon + 1);
    ASSERT_EQ(time.Day(), expected.tm_mday);
    ASSERT_EQ(time.Hour() * 3600 + time.Minute() * 60 + time.Second(),
              expected.tm_hour * 3600 + expected.tm_min * 60 + expected.tm_sec);
  }
}

TEST(Time, TextsOfTheTwoClocks) {
  EXPECT_STREQ(CGXTime(2026, 1, 1, 0, 5, 9).TimeTextSeconds(12), "12:05:09 AM");
  EXPECT_STREQ(CGXTime(2026, 1, 1, 12, 0, 0).TimeTextSeconds(12), "12:00:00 PM");
  EXPECT_STREQ(CGXTime(2026, 1, 1, 23, 5, 9).TimeTextSeconds(12), "11:05:09 PM");
  EXPECT_STREQ(CGXTime(2026, 1, 1, 3, 5, 9).TimeTextSeconds(24), "03:05:09");
}

TEST(Time, PresentTimeIsUTCOnRequest) {
  setenv("TZ", "XXX-5", 1);  // five hours ahead
  tzset();
  CGXTime utc, local;
  utc.GetPresentTime(1);
  local.GetPresentTime(0);
  local.AddSeconds(-5 * 3600);
  EXPECT_EQ(utc.Day(), local.Day());
  EXPECT_NEAR(utc.Hour() * 3600 + utc.Minute() * 60 + utc.Second(),
              local.Hour() * 3600 + local.Minute() * 60 + local.Second(), 2);
  unsetenv("TZ");
  tzset();
}

// RFC 1321 A.5
TEST(MD5, KnownAnswers) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"}};
  for (const auto& [text, expected] : cases) {
    CMD5 digest;
    for (const char* c = text; *c != '\0'; ++c) digest.update(reinterpret_cast<const unsigned char*>(c), 1);
    digest.finalize();
    std::string hex;
    for (int i = 0; i < 16; ++i) {
      CGXString byte;
      byte.Format("%02x", digest.raw_digest()[i]);
      hex += byte.Str();
    }
    EXPECT_EQ(hex, expected);
  }
}

TEST(Address, ParseAndResolveNumbersWithoutAResolver) {
  const struct {
    const char* Text;
    bool Good;
    const char* Address;
    unsigned short Port;
  } cases[] = {{"192.168.1.20", true, "192.168.1.20", 0},
               {"10.0.0.1:8080", true, "10.0.0.1", 8080},
               {"10.0.0.1:65535", true, "10.0.0.1", 65535},
               {"10.0.0.1:65536", false, "", 0},
               {"10.0.0.1:", false, "", 0},
               {"10.0.0.1:80x", false, "", 0},
               {"10.0.0.1:-1", false, "", 0},
               {"10.0.0", false, "", 0},
               {"10.0.0.256", false, "", 0},
               {"camera.local", false, "", 0},
               {"", false, "", 0},
               {nullptr, false, "", 0}};
  for (const auto& c : cases) {
    unsigned address = 0;
    unsigned short port = 9;
    ASSERT_EQ(ParseIP(c.Text, &address, &port), c.Good) << (c.Text != nullptr ? c.Text : "null");
    if (!c.Good) continue;
    EXPECT_STREQ(GXFormatAddress(address), c.Address);
    EXPECT_EQ(port, c.Port);
    sockaddr_in resolved{};
    EXPECT_NE(ResolveAddress(c.Text, &resolved, 554), 0);
    EXPECT_EQ(resolved.sin_addr.s_addr, address);
    EXPECT_EQ(ntohs(resolved.sin_port), c.Port != 0 ? c.Port : 554);
  }
}

TEST(Address, NamesAreLookedUp) {
  sockaddr_in resolved{};
  EXPECT_NE(ResolveAddress("localhost:81", &resolved, 80), 0);
  EXPECT_STREQ(GXFormatAddress(&resolved), "127.0.0.1");
  EXPECT_EQ(ntohs(resolved.sin_port), 81);
  for (const char* bad : {"", ":80", "no such host", "host:port", "::1"})
    EXPECT_EQ(ResolveAddress(bad, &resolved, 80, 2000), 0) << bad;
}

TEST(Address, OctetsKeepTheirOrder) {
  sockaddr_in address{};
  SetIP(192, 168, 7, 9, reinterpret_cast<sockaddr*>(&address));
  EXPECT_STREQ(GXFormatAddress(&address), "192.168.7.9");
  unsigned char a = 0, b = 0, c = 0, d = 0;
  GetIP(reinterpret_cast<sockaddr*>(&address), &a, &b, &c, &d);
  EXPECT_EQ((std::vector<int>{a, b, c, d}), (std::vector<int>{192, 168, 7, 9}));
}

TEST(Interface, LoopbackIsUsedWhenNothingElseIsThere) {
  // The tests' namespace has nothing but the loopback interface; elsewhere it is chosen by name.
  EXPECT_FALSE(SetNetworkInterface("none0"));
  ASSERT_TRUE(SetNetworkInterface("lo"));
  EXPECT_STREQ(NetworkInterface(), "lo");
  unsigned mask = 0, address = 0;
  unsigned char mac[6] = {1, 1, 1, 1, 1, 1};
  ASSERT_TRUE(GetNetInfo(0, &mask, &address, mac, 1));
  EXPECT_STREQ(GXFormatAddress(mask), "255.0.0.0");
  EXPECT_STREQ(GXFormatAddress(address), "127.0.0.1");
  EXPECT_EQ(GetPrimaryIP(), address);
  EXPECT_EQ(mac[0] | mac[5], 0);
  EXPECT_FALSE(GetNetInfo(1, &mask, &address, nullptr, 1));
  ASSERT_TRUE(SetNetworkInterface(""));
  EXPECT_NE(GetPrimaryIP(), 0u);
}

// A datagram to a group reaches a member on the chosen interface, exactly once.
TEST(Interface, MulticastStaysOnIt) {
  ASSERT_TRUE(SetNetworkInterface("lo"));
  const int receiver = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in group{};
  SetIP(239, 255, 255, 250, reinterpret_cast<sockaddr*>(&group));
  ASSERT_EQ(bind(receiver, reinterpret_cast<sockaddr*>(&group), sizeof group), 0);
  socklen_t length = sizeof group;
  ASSERT_EQ(getsockname(receiver, reinterpret_cast<sockaddr*>(&group), &length), 0);
  const ip_mreq membership{group.sin_addr, {GetPrimaryIP()}};
  ASSERT_EQ(setsockopt(receiver, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership), 0);
  const int sender = CreateMulticastSocket();
  ASSERT_NE(sender, -1);
  ASSERT_EQ(sendto(sender, "probe", 5, 0, reinterpret_cast<sockaddr*>(&group), sizeof group), 5);
  char data[16];
  ASSERT_TRUE(WaitSocketReadState(receiver, 2000));
  EXPECT_EQ(recv(receiver, data, sizeof data, 0), 5);
  EXPECT_EQ(recv(receiver, data, sizeof data, MSG_DONTWAIT), -1);
  CloseSocket(sender);
  CloseSocket(receiver);
}

TEST(Relay, PathAThenPathB) {
  const int peer = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  SetIP(127, 0, 0, 1, reinterpret_cast<sockaddr*>(&address));
  ASSERT_EQ(bind(peer, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  socklen_t length = sizeof address;
  getsockname(peer, reinterpret_cast<sockaddr*>(&address), &length);
  GXT_RTP_PATH_DESCRIPTOR none{}, path{};
  std::memcpy(path.Data, &address.sin_addr, 4);
  std::memcpy(path.Data + 4, &address.sin_port, 2);
  const unsigned char zeros[16] = {};
  const int from = socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_EQ(STUN_SendPacket(from, zeros, 16, nullptr, &path, &none), 16);
  EXPECT_EQ(STUN_SendPacket(from, zeros, 8, nullptr, &none, &path), 8);
  EXPECT_EQ(STUN_SendPacket(from, zeros, 16, nullptr, &none, nullptr), -1);
  char data[64];
  EXPECT_EQ(recv(peer, data, sizeof data, 0), 16);
  EXPECT_EQ(recv(peer, data, sizeof data, 0), 8);
  CloseSocket(from);
  CloseSocket(peer);
}

TEST(Assert, IsCountedAndTraced) {
  static std::string traced;
  SetTraceHook([](const char* text) { traced = text; });
  const int before = AssertCount();
  AssertWrap("camera", 69);
  SetTraceHook(nullptr);
  EXPECT_EQ(AssertCount(), before + 1);
  EXPECT_NE(traced.find("camera, line 69"), std::string::npos);
}

}  // namespace
