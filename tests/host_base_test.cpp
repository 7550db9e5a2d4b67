// The host's texts, records, calendar time and addresses.
#include "host/base/gxfile.h"
#include "host/base/gxmsg.h"
#include "host/base/gxstring.h"
#include "host/base/gxtime.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>

namespace {

TEST(String, CutsAndFindsInsideTheText) {
  CGXString text("camera");
  EXPECT_TRUE(text.Left(3) == "cam" && text.Left(99) == "camera" && text.Left(-1) == "");
  EXPECT_TRUE(text.Right(3) == "era" && text.Right(99) == "camera" && text.Right(-1) == "");
  EXPECT_TRUE(text.Mid(2) == "mera" && text.Mid(2, 2) == "me" && text.Mid(9) == "" && text.Mid(4, 99) == "ra");
  EXPECT_TRUE(text.Find("a") == 1 && text.Find("a", 2) == 5 && text.Find("a", 99) == -1);
  EXPECT_TRUE(text.Find("c", -5) == 0 && text.Find(nullptr) == -1 && text.Find('?') == -1);
  text.Format("<%s|%s>", static_cast<const char*>(text), std::string(5000, 'x').c_str());  // of itself
  EXPECT_TRUE(text.GetLength() == 5009 && text.Left(8) == "<camera|");
  CGXString buffer;
  std::memset(buffer.GetBufferCHAR(16), 'x', 16);
  buffer.ReleaseBuffer(99);
  EXPECT_EQ(buffer.GetLength(), 16);
}

TEST(String, TrimLeftOfATextTakesThatPrefixOnce) {
  const char* const cases[][3] = {{"rtsp://rtsp://host", "rtsp://", "rtsp://host"},
                                  {"ptsr/host", "rtsp://", "ptsr/host"},
                                  {"RTSP://host", "rtsp://", "RTSP://host"},
                                  {"rtsp:/", "rtsp://", "rtsp:/"},
                                  {"x", nullptr, "x"}};
  for (const auto& [whole, prefix, left] : cases) {
    CGXString text(whole);
    text.TrimLeft(prefix);
    EXPECT_STREQ(text, left);
  }
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

std::string Text(const CGXTime& time) {
  CGXString text;
  text.Format("%d-%d-%d %d:%d:%d.%d", time.Year(), time.Month(), time.Day(), time.Hour(), time.Minute(),
              time.Second(), time.MSecond());
  return text.Str();
}

CGXTime UTC(time_t clock) {
  std::tm utc{};
  gmtime_r(&clock, &utc);
  return {utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec};
}

TEST(Time, SecondsCarryThroughTheCalendar) {
  const struct {
    CGXTime From;
    int Seconds;
    const char* To;
  } cases[] = {
      {{2026, 12, 31, 23, 59, 59, 7}, 1, "2027-1-1 0:0:0.7"},
      {{2027, 1, 1, 0, 0, 0}, -1, "2026-12-31 23:59:59.0"},
      {{2100, 2, 28, 12, 0, 0}, 86400, "2100-3-1 12:0:0.0"},
      {{1970, 1, 1, 0, 0, 0}, INT_MIN, "1901-12-13 20:45:52.0"},
      // As cameras with an unset clock say it.
      {{2026, 0, 0, 0, 0, 0}, 0, "2025-11-30 0:0:0.0"},
      {{2026, 13, 32, 24, 60, 60}, 0, "2027-2-2 1:1:0.0"},
  };
  for (const auto& c : cases) {
    CGXTime time = c.From;
    time.AddSeconds(c.Seconds);
    EXPECT_EQ(Text(time), c.To);
  }
  CGXTime time(1970, 1, 1, 0, 0, 0);
  for (time_t clock = 0; clock < INT_MAX - 107159; time.AddSeconds(107159), clock += 107159)  // 1.24 days
    ASSERT_EQ(Text(time), Text(UTC(clock)));
  for (const int wild : {INT_MAX, INT_MIN, -1, 999999}) {
    CGXTime odd(wild, wild, wild, wild, wild, wild, 0);
    odd.AddSeconds(wild);
    EXPECT_TRUE(odd.Month() >= 1 && odd.Month() <= 12 && odd.Day() >= 1 && odd.Day() <= 31) << wild;
    EXPECT_TRUE(odd.Hour() >= 0 && odd.Hour() <= 23 && odd.Second() >= 0 && odd.Second() <= 59) << wild;
  }
}

TEST(Time, PresentTimeIsUTCOnRequest) {
  setenv("TZ", "XXX-5", 1);  // five hours ahead
  tzset();
  for (const int utc : {1, 0}) {
    const time_t before = time(nullptr);
    CGXTime now;
    now.GetPresentTime(utc);
    if (utc == 0) now.AddSeconds(-5 * 3600);
    std::tm fields{};
    ASSERT_NE(strptime(Text(now).c_str(), "%Y-%m-%d %H:%M:%S", &fields), nullptr) << Text(now);
    const time_t clock = timegm(&fields);
    EXPECT_TRUE(before <= clock && clock <= time(nullptr) + 1) << Text(now);  // that one lags a little
  }
  unsetenv("TZ");
  tzset();
}

TEST(Address, NumbersAndNames) {
  const struct {
    const char* Text;
    bool Number;
    const char* Resolved;  // with 554 as the usual port; null: cannot be
  } cases[] = {{"192.168.1.20", true, "192.168.1.20:554"},
               {"10.0.0.1:8080", true, "10.0.0.1:8080"},
               {"localhost:81", false, "127.0.0.1:81"},
               {"10.0.0.1:65536", false, nullptr},
               {"10.0.0.1:", false, nullptr},
               {"10.0.0.1:80x", false, nullptr},
               {"10.0.0.256", false, nullptr},
               {"", false, nullptr},
               {":80", false, nullptr},
               {"::1", false, nullptr}};
  for (const auto& c : cases) {
    unsigned address = 0;
    unsigned short port = 0;
    EXPECT_EQ(ParseIP(c.Text, &address, &port), c.Number) << c.Text;
    sockaddr_in resolved{};
    ASSERT_EQ(ResolveAddress(c.Text, &resolved, 554, 30000) != 0, c.Resolved != nullptr) << c.Text;
    if (c.Resolved == nullptr) continue;
    EXPECT_EQ(GXFormatAddress(&resolved).Str() + ":" + std::to_string(ntohs(resolved.sin_port)), c.Resolved);
    EXPECT_TRUE(!c.Number || resolved.sin_addr.s_addr == address);
  }
}

TEST(Interface, TheDefaultRouteWithTheLowestMetricIsUsed) {
  const char* const table = "host_base_test.routes";
  std::ofstream(table) << "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\tMTU\tWindow\tIRTT\n"
                          "near0\t0000A8C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
                          "down0\t00000000\t0101A8C0\t0002\t0\t0\t1\t00000000\t0\t0\t0\n"
                          "wifi0\t00000000\t0101A8C0\t0003\t0\t0\t600\t00000000\t0\t0\t0\n"
                          "wire0\t00000000\t0101A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
                          "cell0\t00000000\t0101A8C0\t0003\t0\t0\t700\t00000000\t0\t0\t0\n";
  EXPECT_STREQ(DefaultRouteInterface(table), "wire0");
  std::remove(table);
  EXPECT_STREQ(DefaultRouteInterface(table), "");
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

}  // namespace
