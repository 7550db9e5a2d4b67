// A whole session against a scripted camera: the bytes of every request, replies in all shapes, and packets.
#include "host/gxassert.h"
#include "host/gxthread.h"
#include "host/trace.h"
#include "tests/rtsp_support.h"
#include "util/bytes.h"

#include <openssl/evp.h>
#include <sys/time.h>
#include <time.h>

#include <atomic>
#include <cstring>

namespace {

std::atomic<long long> g_ClockAheadMs{0}, g_ClockStoppedAtMs{0};

long long RealClockMs() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return time.tv_sec * 1000LL + time.tv_nsec / 1000000;
}

// Moves the clock that the driver's timers read.
struct CClockStep {
  explicit CClockStep(long long milliseconds) { g_ClockAheadMs += milliseconds; }
  ~CClockStep() { g_ClockAheadMs = 0; }
};

// Stops it, but for steps, so that nothing depends on how fast the test runs.
struct CStoppedClock : CClockStep {
  CStoppedClock() : CClockStep(0) { g_ClockStoppedAtMs = RealClockMs(); }
  ~CStoppedClock() { g_ClockStoppedAtMs = 0; }
};

struct CTraceCatcher : CTraceListener {
  CTraceCatcher() { CTraceServer::Instance()->AddListener(this); }
  ~CTraceCatcher() override { CTraceServer::Instance()->RemoveListener(this); }
  void OnTrace(CTraceProducer*, const CGXString& line) override { Lines.push_back(line.Str()); }
  std::vector<std::string> Lines;
};

const std::string AGENT = "User-Agent: NORVA RTP Client\r\n";

std::string MD5(const std::string& text) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned length = 0;
  EVP_Digest(text.data(), text.size(), digest, &length, EVP_md5(), nullptr);
  std::string hex;
  for (unsigned i = 0; i < length; ++i) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", digest[i]);
    hex += digits;
  }
  return hex;
}

std::string Challenge(const std::string& headers) {
  return "RTSP/1.0 401 Unauthorized\r\nCSeq: 2\r\n" + headers + "\r\n";
}

// One exchange with a camera that sends `replies`.
struct CExchange {
  CExchange(std::vector<std::string> replies, int size = RTSP_REPLY_BYTES, size_t piece = 0)
      : Server(std::move(replies), piece),
        Session(Server, RTP_TRANSPORT_TCP, "user", "secret"),
        Reply(4096, 'x') {
    Result = Session.RTSP.RTSPExchange("rtsp://c/live", "OPTIONS", "", Reply.data(), size, 0);
  }
  std::string Text() const { return Reply.c_str(); }

  CRtspCamera Server;
  CSession Session;
  std::string Reply;
  int Result;
};

}  // namespace

extern "C" int gettimeofday(timeval* now, void*) noexcept {
  const long long stopped = g_ClockStoppedAtMs;
  const long long milliseconds = (stopped != 0 ? stopped : RealClockMs()) + g_ClockAheadMs;
  now->tv_sec = milliseconds / 1000;
  now->tv_usec = milliseconds % 1000 * 1000;
  return 0;
}

TEST(RtspSession, SpeaksTheseBytesOverUDP) {
  CRtspCamera server({Ok("Public: DESCRIBE\r\n"), Ok(),
                      Ok("Transport: RTP/AVP;unicast;client_port=3232-3233;server_port=6970-6971\r\n"
                         "Session: 12345678;timeout=60\r\n"),
                      Ok()});
  {
    CSession session(server, RTP_TRANSPORT_UDP);
    ASSERT_TRUE(session.RTSP.Connected());
    ASSERT_TRUE(session.Play());
    session.RTSP.Stop();
    server.Requests(5);
  }
  const std::string live = server.URL(), track = server.URL("/live/track1");
  const std::vector<std::string> expected = {
      "OPTIONS " + live + " RTSP/1.0\r\nCSeq: 2\r\n" + AGENT + "\r\n",
      "DESCRIBE " + live + " RTSP/1.0\r\nCSeq: 3\r\n" + AGENT + "\r\n",
      "SETUP " + track + " RTSP/1.0\r\nCSeq: 4\r\n" + AGENT +
          "Transport: RTP/AVP;unicast;client_port=3232-3233\r\n\r\n",
      "PLAY " + track + " RTSP/1.0\r\nCSeq: 5\r\n" + AGENT + "Session:  12345678\r\nRange: npt=0.000-\r\n\r\n",
      "TEARDOWN " + track + " RTSP/1.0\r\nCSeq: 6\r\n" + AGENT + "Session:  12345678\r\n\r\n"};
  EXPECT_EQ(expected, server.Requests(5));
}

// The channel is the one that the camera chose; packets come before the PLAY reply, in its segment and behind
// it.
TEST(RtspSession, SpeaksTheseBytesOverTCP) {
  const std::string early = Interleaved(4, std::string(1400, 'a')),
                    same = Interleaved(0, "other") + Interleaved(4, "b") + Interleaved(4, "cc");
  CRtspCamera server({Ok(), Ok(), Ok("Session: 77\r\nTransport: RTP/AVP/TCP;unicast;interleaved=4-5\r\n"),
                      early + Ok("RTP-Info: x\r\n") + same.substr(0, 17)});
  CSession session(server, RTP_TRANSPORT_TCP);
  ASSERT_TRUE(session.Play());
  const std::string track = server.URL("/live/track1");
  EXPECT_EQ("SETUP " + track + " RTSP/1.0\r\nCSeq: 4\r\n" + AGENT +
                "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n",
            server.Request(2));
  EXPECT_EQ("PLAY " + track + " RTSP/1.0\r\nCSeq: 5\r\n" + AGENT + "Session:  77\r\n\r\n", server.Request(3));
  server.Send(same.substr(17));
  for (const std::string& packet : {std::string(1400, 'a'), std::string("b"), std::string("cc")})
    EXPECT_EQ(packet, session.Next());
  server.Hangup();
  EXPECT_EQ("", session.Next(20000));
  for (int i = 0; i < 3; ++i) session.RTSP.Stop();  // the first may still be taken by the system
  EXPECT_FALSE(session.RTSP.Connected());
}

TEST(RtspSession, AnswersADigestChallengeOnce) {
  const std::string nonce = "dcd98b7102dd2f0e8b11d0f600bfb0c093";
  const std::string challenge = Challenge(
      "WWW-Authenticate: Basic realm=\"b\"\r\n"
      "WWW-Authenticate: Digest realm=\"testrealm@host.com\", nonce=\"" +
      nonce + "\"\r\n");
  CRtspCamera server({challenge, Ok(), challenge, challenge, Ok()});
  CSession session(server, RTP_TRANSPORT_TCP, "Mufasa", "Circle Of Life");
  char reply[RTSP_REPLY_BYTES + 1];
  EXPECT_TRUE(session.RTSP.RTSPExchange("/dir/index.html", "GET", "Accept: a", reply, RTSP_REPLY_BYTES, 0));
  // The values of the example in RFC 2617 3.5; without qop the response is that of RFC 2069.
  const std::string response =
      MD5("939e7578ed9e3c518a452acee763bce9:" + nonce + ":39aff3a2bab6126f332b942af96d3366");
  EXPECT_EQ(
      "GET /dir/index.html RTSP/1.0\r\nCSeq: 3\r\n" + AGENT +
          "Accept: a\r\nAuthorization: Digest username=\"Mufasa\", realm=\"testrealm@host.com\", nonce=\"" +
          nonce + "\", uri=\"/dir/index.html\", response=\"" + response + "\"\r\n\r\n",
      server.Request(1));

  EXPECT_FALSE(session.RTSP.RTSPExchange("/dir/index.html", "GET", nullptr, reply, RTSP_REPLY_BYTES, 0));
  session.RTSP.Stop();
  EXPECT_EQ(0u, server.Request(4).find("TEARDOWN")) << "a second 401 ends the exchange after two requests";
}

TEST(RtspSession, TakesRepliesInAllShapes) {
  const std::string page(200, 'p'), body = Ok("Content-Length: 4\r\n") + "v=0\n";
  const struct {
    const char* name;
    std::vector<std::string> replies;
    size_t piece;
    std::string text;
  } cases[] = {
      {"single bytes with a body", {body}, 1, body},
      {"no header end, then silence", {"RTSP/1.0 200 OK\r\n"}, 0, "RTSP/1.0 200 OK\r\n"},
      {"negative length", {Ok("Content-Length: -7\r\n")}, 0, Ok("Content-Length: -7\r\n")},
      {"body cut short", {Ok("Content-Length: 9\r\n") + "v=0"}, 0, Ok("Content-Length: 9\r\n") + "v=0"},
      {"body behind a challenge, in its own segment",
       {Challenge("WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\nContent-Length: 200\r\n") + page, Ok()},
       60,
       Ok()},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const CExchange exchange(test.replies, RTSP_REPLY_BYTES, test.piece);
    EXPECT_TRUE(exchange.Result);
    EXPECT_EQ(test.text, exchange.Text());
  }
}

TEST(RtspSession, KeepsALongReplyInsideItsBuffer) {
  std::string full = Ok("Content-Length: 40\r\n") + std::string(40, 'b');
  const int size = static_cast<int>(full.size());
  const CExchange exact({full}, size);
  EXPECT_TRUE(exact.Result);
  EXPECT_EQ(full + "x", exact.Reply.substr(0, full.size() + 1)) << "held whole, without a terminator";

  const CExchange over({Ok("Content-Length: 45\r\n") + std::string(45, 'b') + Ok("Next: 1\r\n")}, size, 10);
  EXPECT_TRUE(over.Result);
  EXPECT_EQ('b', over.Reply[full.size() - 1]);
  EXPECT_EQ('x', over.Reply[full.size()]);

  const CExchange endless({std::string(3000, 'h')}, size);
  EXPECT_FALSE(endless.Result);
  EXPECT_EQ('x', endless.Reply[full.size()]);

  // A description that is far too long for the buffer must not be taken for the reply to SETUP.
  CRtspCamera server({Ok("Content-Length: 4000\r\n"), Ok("Next: 1\r\n")});
  CSession session(server, RTP_TRANSPORT_TCP);
  char reply[RTSP_REPLY_BYTES + 1] = {};
  EXPECT_TRUE(session.RTSP.RTSPExchange("u", "DESCRIBE", "", reply, RTSP_REPLY_BYTES, 0));
  server.Send(std::string(4000, 'v'));
  EXPECT_TRUE(session.RTSP.RTSPExchange("u", "SETUP", "", reply, RTSP_REPLY_BYTES, 0));
  EXPECT_EQ(Ok("Next: 1\r\n"), std::string(reply));
}

TEST(RtspSession, FailsClearly) {
  EXPECT_FALSE(CRTSP("rtsp://127.0.0.1", "", RTP_TRANSPORT_TCP, "", "", -1, nullptr, nullptr).Connected());
  EXPECT_FALSE(CRTSP("rtsp://127.0.0.1:9/x", "", RTP_TRANSPORT_TCP, "", "", -1, nullptr, nullptr).Connected());

  const struct {
    const char* name;
    std::vector<std::string> replies;
  } setups[] = {{"no session id", {Ok(), Ok(), Ok()}},
                {"empty session id", {Ok(), Ok(), Ok("Session:\r\n")}},
                {"busy", {Ok(), Ok(), "RTSP/1.0 503 Service Unavailable\r\nSession: 1\r\n\r\n"}}};
  for (const auto& test : setups) {
    SCOPED_TRACE(test.name);
    CRtspCamera server(test.replies);
    CSession session(server, RTP_TRANSPORT_TCP);
    EXPECT_FALSE(session.Play());
    EXPECT_EQ(3u, server.Requests(3).size());
  }

  CRtspCamera server({});
  CSession session(server, RTP_TRANSPORT_TCP);
  const std::string path(1100, 'p');
  EXPECT_FALSE(session.RTSP.RTSPExchange(path.c_str(), "OPTIONS", "", nullptr, 0, 0));
  EXPECT_TRUE(session.RTSP.Connected()) << "nothing of a request that is too long is sent";
  session.RTSP.Stop();
  EXPECT_EQ(0u, server.Request(0).find("TEARDOWN rtsp://127.0.0.1"));
}

TEST(RtspValues, AreCutAndTerminated) {
  char out[RTSP_VALUE_CHARS + 1];
  EXPECT_TRUE(CRTSP::Extract("A: 1\r\nSession: 12;timeout=60\r\nB: 2", "Session:", out));
  EXPECT_STREQ(" 12;timeout=60", out);
  EXPECT_FALSE(CRTSP::ExtractParam("realm=\"open", "realm", out));
  for (const int length : {RTSP_VALUE_CHARS - 1, 1000}) {
    const std::string value(static_cast<size_t>(length), 'v');
    const int asserts = AssertCount(), cut = length > RTSP_VALUE_CHARS;
    EXPECT_TRUE(CRTSP::Extract(("K:" + value).c_str(), "K:", out));
    EXPECT_EQ(value.substr(0, RTSP_VALUE_CHARS), out);
    EXPECT_TRUE(CRTSP::ExtractParam(("K=\"" + value + "\"").c_str(), "K", out));
    EXPECT_EQ(value.substr(0, RTSP_VALUE_CHARS), out);
    EXPECT_EQ(asserts + 2 * cut, AssertCount());
  }
}

TEST(RtspPorts, AreSharedByAllSessionsAndNotFreedTwice) {
  for (int i = 0; i < 64; ++i) ASSERT_EQ(3232 + 2 * i, CRTSP::GetRTPPort());
  const int asserts = AssertCount();
  EXPECT_EQ(0, CRTSP::GetRTPPort());
  EXPECT_EQ(asserts + 1, AssertCount());
  for (int i = 0; i < 64; ++i) CRTSP::FreeRTPPort(static_cast<unsigned short>(3232 + 2 * i));
  CRtspCamera server({});
  const int occupant = BoundSocket(SOCK_DGRAM, 3232);
  {
    CSession failed(server, RTP_TRANSPORT_UDP);
    EXPECT_FALSE(failed.RTSP.Init(&failed.Profile));
    close(occupant);
    EXPECT_EQ(3232, CRTSP::GetRTPPort());  // another session takes the port that the failed one gave back
  }
  EXPECT_EQ(3234, CRTSP::GetRTPPort()) << "and keeps it when the failed one goes";
  CRTSP::FreeRTPPort(3232);
  CRTSP::FreeRTPPort(3234);
}

TEST(RtspInterleaved, SkipsWhatIsNoPacketOfTheTrack) {
  CRtspCamera server({Ok(), Ok(), Ok("Session: 1\r\n"), Ok()}, 7);
  CSession session(server, RTP_TRANSPORT_TCP);
  ASSERT_TRUE(session.Play());
  CTraceCatcher trace;
  server.Send(Interleaved(1, "report") + Interleaved(0, "one") + "RTSP/1.0 200 OK\r\nSession: $$$$$$\r\n\r\n" +
              Interleaved(0, std::string(100, 'l')) + Interleaved(0, "two") + "junk" + Interleaved(0, "three"));
  EXPECT_EQ("one", session.Next());
  EXPECT_EQ(std::vector<std::string>{"Skipping 6 bytes on index 1\n"}, trace.Lines);
  EXPECT_EQ(std::string(60, 'l'), session.Next(2000, 60)) << "cut to the buffer";
  EXPECT_EQ("two", session.Next());
  EXPECT_EQ("three", session.Next());
  EXPECT_EQ("", session.Next(20)) << "silence";

  server.Send(Interleaved(0, "abcdef").substr(0, 6));
  unsigned char bytes[6];
  EXPECT_FALSE(session.RTSP.ReadTCP(bytes, 7, 20));
  EXPECT_EQ(0, std::memcmp(bytes, "$\0\0\6ab", 6));
}

TEST(RtspInterleaved, EndsAtOnceOnACancelledThread) {
  CRtspCamera server({Ok(), Ok(), Ok("Session: 1\r\n"), Ok()});
  CSession session(server, RTP_TRANSPORT_TCP);
  ASSERT_TRUE(session.Play());
  CGXThread thread;
  const auto wait = [](void* argument) -> unsigned {
    return static_cast<CSession*>(argument)->Next(60000).empty();
  };
  ASSERT_TRUE(thread.Start(wait, &session, 0, "rtsp"));
  thread.Cancel();
  EXPECT_TRUE(thread.WaitComplete(20000));
}

TEST(RtspKeepAlive, IsSentEveryThirtySecondsWhateverTheClockDoes) {
  for (const RTP_TRANSPORT transport : {RTP_TRANSPORT_UDP, RTP_TRANSPORT_TCP}) {
    CRtspCamera server({Ok(), Ok(), Ok("Session: 9;timeout=60\r\n"), Ok(), Ok(), Ok()});
    CSession session(server, transport);
    ASSERT_TRUE(session.Play());
    EXPECT_EQ("", session.Next(10));
    const CClockStep later(30500);
    EXPECT_EQ("", session.Next(10));
    EXPECT_EQ("", session.Next(10));
    EXPECT_EQ("GET_PARAMETER " + server.URL("/live/track1") + " RTSP/1.0\r\nCSeq: 6\r\n" + AGENT +
                  "Session:  9\r\n\r\n",
              server.Request(4));
    const CClockStep back(-3600000);  // the clock is set back by an hour: due at once, then not again
    for (int i = 0; i < 3; ++i) EXPECT_EQ("", session.Next(10));
    session.RTSP.Stop();
    EXPECT_EQ(0u, server.Request(5).find("GET_PARAMETER"));
    EXPECT_EQ(0u, server.Request(6).find("TEARDOWN"));
  }
}

TEST(RtspUDP, ReceivesInOrderAndReportsToTheSender) {
  const int rtcp = BoundSocket(SOCK_DGRAM, 0);
  CRtspCamera server(
      {Ok(), Ok(),
       Ok("Transport: RTP/AVP;server_port=" + std::to_string(BoundPort(rtcp) - 1) + "\r\nSession: 1\r\n"),
       Ok("RTCP-Interval: 2000\r\n")});
  CSession session(server, RTP_TRANSPORT_UDP);
  ASSERT_TRUE(session.Play());

  const sockaddr_in rtp = Loopback(3232), control = Loopback(3233);
  for (int i = 0; i < 150; ++i) {
    const std::string packet = "packet " + std::to_string(i) + std::string(1400, '.');
    sendto(rtcp, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&rtp), sizeof rtp);
  }
  const unsigned char report[28] = {0x80, 200, 0, 6, 0xDE, 0xAD, 0xBE, 0xEF};
  sendto(rtcp, report, sizeof report, 0, reinterpret_cast<const sockaddr*>(&control), sizeof control);
  for (int i = 0; i < 150; ++i)
    ASSERT_EQ(0u, session.Next().find("packet " + std::to_string(i) + "."))
        << "a burst of a key picture is kept";

  const CClockStep later(2500);
  EXPECT_EQ("", session.Next(10));
  unsigned char received[64], expected[32] = {0x81, 201, 0, 7, 0, 0, 0, 0, 0xDE, 0xAD, 0xBE, 0xEF};
  ASSERT_EQ(32, recv(rtcp, received, sizeof received, 0));
  std::memcpy(expected + 4, received + 4, 4);  // the session's own identity
  EXPECT_EQ(0, std::memcmp(expected, received, sizeof expected));
  EXPECT_EQ("", session.Next(10));
  EXPECT_EQ(-1, recv(rtcp, received, sizeof received, MSG_DONTWAIT)) << "once an interval";
  close(rtcp);
}

TEST(RtspRelay, OnlyReceivesAndKeepsThePathOpen) {
  const int relay = BoundSocket(SOCK_DGRAM, 0), peer = BoundSocket(SOCK_DGRAM, 0);
  GXT_RTP_PATH_DESCRIPTOR path{};
  const CStoppedClock stopped;
  const sockaddr_in here = Loopback(BoundPort(relay)), there = Loopback(BoundPort(peer));
  std::memcpy(path.Data, &there.sin_addr, 4);
  std::memcpy(path.Data + 4, &there.sin_port, 2);
  CRTSP session("rtsp://nowhere/x", "", RTP_TRANSPORT_UDP, "", "", relay, &path, nullptr);
  EXPECT_TRUE(session.Connected() && session.Init(nullptr) && session.Login() && session.InitSession());
  sendto(peer, "data", 4, 0, reinterpret_cast<const sockaddr*>(&here), sizeof here);
  unsigned char packet[64];
  EXPECT_EQ(4, session.WaitNextPacket(packet, sizeof packet, 1000));

  // The first keep-alive at once, nine more every half second, from then on every five seconds.
  const std::string zeros(16, 0);
  const auto sent = [&](long long elapsedMs) {
    g_ClockAheadMs += elapsedMs;
    EXPECT_EQ(0, session.WaitNextPacket(packet, sizeof packet, 0));
    int count = 0;
    for (ssize_t n; (n = recv(peer, packet, sizeof packet, MSG_DONTWAIT)) > 0; ++count)
      EXPECT_EQ(zeros, std::string(reinterpret_cast<char*>(packet), static_cast<size_t>(n)));
    return count;
  };
  EXPECT_EQ(1, sent(2));
  for (int i = 0; i < 9; ++i) EXPECT_TRUE(sent(400) == 0 && sent(200) == 1) << i;
  EXPECT_EQ(0, sent(4000));
  EXPECT_EQ(1, sent(1500));
  session.Stop();
  close(peer);
  close(relay);
}
