// A whole session against a scripted camera: the bytes of every request, replies in all shapes, and packets.
#include "host/base/gxassert.h"
#include "host/base/gxthread.h"
#include "host/net/socket.h"
#include "rtsp/reply_reader.h"
#include "tests/rtsp_support.h"
#include "tests/support/eventually.h"
#include "tests/support/stopped_clock.h"
#include "tests/support/trace_keeper.h"

#include <cstring>

namespace {

const std::string AGENT = "User-Agent: NORVA RTP Client\r\n";

std::string Challenge(const std::string& headers) {
  return "RTSP/1.0 401 Unauthorized\r\nCSeq: 2\r\n" + headers + "\r\n";
}

// One exchange with a camera that sends `replies`.
struct CExchange {
  explicit CExchange(std::vector<std::string> replies, int size = RTSP_REPLY_BYTES)
      : Server(std::move(replies)), Session(Server, RTP_TRANSPORT_TCP, "user", "secret"), Reply(4096, 'x') {
    Result = Session.RTSP.RTSPExchange("rtsp://c/live", "OPTIONS", "", Reply.data(), size, 0);
  }
  std::string Text() const { return Reply.c_str(); }

  CRtspCamera Server;
  CSession Session;
  std::string Reply;
  int Result;
};

}  // namespace

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
  EXPECT_EQ("", session.Next());
  EXPECT_TRUE(Eventually(20, [&] {
    session.RTSP.Stop();  // the first may still be taken by the system
    return !session.RTSP.Connected();
  }));
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
  EXPECT_EQ(
      "GET /dir/index.html RTSP/1.0\r\nCSeq: 3\r\n" + AGENT +
          "Accept: a\r\nAuthorization: Digest username=\"Mufasa\", realm=\"testrealm@host.com\", nonce=\"" +
          nonce + "\", uri=\"/dir/index.html\", response=\"670fd8c2df070c60b045671b8b24ff02\"\r\n\r\n",
      server.Request(1));

  EXPECT_FALSE(session.RTSP.RTSPExchange("/dir/index.html", "GET", nullptr, reply, RTSP_REPLY_BYTES, 0));
  session.RTSP.Stop();
  EXPECT_EQ(0u, server.Request(4).find("TEARDOWN")) << "a second 401 ends the exchange after two requests";
}

TEST(RtspSession, TakesRepliesInAllShapes) {
  const std::string shorter = Ok("Content-Length: 9\r\n") + "v=0";
  const struct {
    const char* name;
    std::vector<std::string> replies;
    std::string text;
  } cases[] = {
      {"no header end, then silence", {"RTSP/1.0 200 OK\r\n"}, "RTSP/1.0 200 OK\r\n"},
      {"negative length", {Ok("Content-Length: -7\r\n")}, Ok("Content-Length: -7\r\n")},
      {"body cut short", {shorter}, shorter},
      {"the body of a challenge comes late",
       {Challenge("WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\nContent-Length: 200\r\n"),
        std::string(200, 'p') + Ok()},
       Ok()},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    const CExchange exchange(test.replies);
    EXPECT_TRUE(exchange.Result);
    EXPECT_EQ(test.text, exchange.Text());
  }
  // Byte by byte, it is whole with the last.
  const std::string header = Ok("Content-Length: 4\r\n"), whole = header + "v=0\n";
  char reply[RTSP_REPLY_BYTES];
  CReplyReader reader(reply, sizeof reply, false, nullptr);
  for (size_t held = 1; held <= whole.size(); ++held) {
    reader.Room()[0] = whole[held - 1];
    using State = CReplyReader::State;
    const State rest = held < whole.size() ? State::BODY : State::COMPLETE;
    EXPECT_EQ(held < header.size() ? State::MORE : rest, reader.Added(1)) << held;
  }
  EXPECT_EQ(whole, reader.Text());
}

TEST(RtspSession, KeepsALongReplyInsideItsBuffer) {
  const std::string full = Ok("Content-Length: 40\r\n") + std::string(40, 'b');
  const int size = static_cast<int>(full.size());
  const struct {
    std::string reply;
    int result;
    char last;
  } cases[] = {
      {full, 1, 'b'},  // held whole, without a terminator
      {Ok("Content-Length: 45\r\n") + std::string(45, 'b') + Ok("Next: 1\r\n"), 1, 'b'},
      {std::string(3000, 'h'), 0, 'h'},  // endless
  };
  for (const auto& test : cases) {
    const CExchange exchange({test.reply}, size);
    EXPECT_EQ(test.result, exchange.Result);
    EXPECT_EQ(std::string{test.last} + 'x', exchange.Reply.substr(full.size() - 1, 2)) << test.reply;
  }
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
  const CRTSP refused("rtsp://127.0.0.1:9/x", "", RTP_TRANSPORT_TCP, "", "", -1, nullptr, nullptr);
  EXPECT_FALSE(refused.Connected());
  EXPECT_EQ("the camera's stream server refuses connections", refused.Failure());

  const std::string no =
      "RTSP/1.0 401 Unauthorized\r\nWWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n\r\n";
  const std::string unsupported = "RTSP/1.0 461 Unsupported Transport\x1b[31m\r\n\r\n";
  const struct {
    const char* reason;
    std::vector<std::string> replies;
    size_t requests = 3;
  } setups[] = {{"the camera has agreed, but named no session", {Ok(), Ok(), Ok()}},
                {"the camera has agreed, but named no session", {Ok(), Ok(), Ok("Session:\r\n")}},
                {"the camera has no room for another session (Service Unavailable)",
                 {Ok(), Ok(), "RTSP/1.0 503 Service Unavailable\r\nSession: 1\r\n\r\n"}},
                {"the camera refused SETUP (461 Unsupported Transport)", {Ok(), Ok(), unsupported}},
                {"the camera's stream server refuses the login; check user name and password", {no, no}, 2}};
  for (const auto& test : setups) {
    SCOPED_TRACE(test.reason);
    CRtspCamera server(test.replies);
    CSession session(server, RTP_TRANSPORT_TCP);
    EXPECT_FALSE(session.Play());
    EXPECT_EQ(test.reason, session.RTSP.Failure());
    EXPECT_EQ(test.requests, server.Requests(test.requests).size());
  }
  // Over UDP a refused SETUP and a PLAY without session go on, and nothing comes. A refused OPTIONS tells
  // nothing.
  CRtspCamera silent({unsupported, Ok(), unsupported, "RTSP/1.0 454 Session Not Found\r\n\r\n"}),
      kind({unsupported});
  CSession udp(silent, RTP_TRANSPORT_UDP), options(kind, RTP_TRANSPORT_TCP);
  EXPECT_TRUE(udp.Play());
  EXPECT_EQ("the camera refused SETUP (461 Unsupported Transport)", udp.RTSP.Failure());
  char reply[RTSP_REPLY_BYTES + 1] = {};
  EXPECT_TRUE(options.RTSP.RTSPExchange("rtsp://x", "OPTIONS", "", reply, RTSP_REPLY_BYTES, 0));
  EXPECT_EQ("", options.RTSP.Failure());

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
  for (const int length : {RTSP_VALUE_CHARS - 1, RTSP_VALUE_CHARS, 1000}) {
    const std::string value(static_cast<size_t>(length), 'v');
    const int asserts = AssertCount(), cut = length >= RTSP_VALUE_CHARS;
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

const std::vector<std::string> PLAYING = {Ok(), Ok(), Ok("Session: 9;timeout=60\r\n"), Ok(), Ok(), Ok()};

TEST(RtspInterleaved, SkipsWhatIsNoPacketOfTheTrack) {
  CRtspCamera server(PLAYING);
  CSession session(server, RTP_TRANSPORT_TCP);
  ASSERT_TRUE(session.Play());
  const CTraceKeeper trace;
  const std::string sent =
      Interleaved(1, "report") + Interleaved(0, "one") + "RTSP/1.0 200 OK\r\nSession: $$$$$$\r\n\r\n" +
      Interleaved(0, std::string(100, 'l')) + Interleaved(0, "two") + "junk" + Interleaved(0, "three");
  for (size_t at = 0; at < sent.size(); at += 7) server.Send(sent.substr(at, 7));
  EXPECT_EQ("one", session.Next());
  EXPECT_EQ(std::vector<std::string>{"Skipping 6 bytes on index 1\n"}, trace.Lines());
  EXPECT_EQ(std::string(60, 'l'), session.Next(20000, 60)) << "cut to the buffer";
  EXPECT_EQ("two", session.Next());
  EXPECT_EQ("three", session.Next());
  EXPECT_EQ("", session.Next(20)) << "silence";

  server.Send(Interleaved(0, "abcdef").substr(0, 6));
  server.Hangup();
  unsigned char bytes[6];
  EXPECT_FALSE(session.RTSP.ReadTCP(bytes, 7, 20000));
  EXPECT_EQ(0, std::memcmp(bytes, "$\0\0\6ab", 6));
}

TEST(RtspInterleaved, EndsAtOnceOnACancelledThread) {
  CRtspCamera server(PLAYING);
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
    CStoppedClock clock;
    CRtspCamera server(PLAYING);
    CSession session(server, transport);
    ASSERT_TRUE(session.Play());
    // In the end the clock is set back by an hour: due at once, then not again.
    for (const long long step : {29900, 200, 29700, -3600000}) {
      clock.Step(step);
      for (int i = 0; i < 3; ++i) EXPECT_EQ("", session.Next(10));
    }
    session.RTSP.Stop();
    EXPECT_EQ("GET_PARAMETER " + server.URL("/live/track1") + " RTSP/1.0\r\nCSeq: 6\r\n" + AGENT +
                  "Session:  9\r\n\r\n",
              server.Request(4));
    EXPECT_EQ(0u, server.Request(5).find("GET_PARAMETER"));
    EXPECT_EQ(0u, server.Request(6).find("TEARDOWN"));
  }
}

void SendTo(int socket, const std::string& bytes, unsigned short port) {
  const sockaddr_in to = Loopback(port);
  sendto(socket, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

// The next datagram, once it is there; empty at once when none is due.
std::string Received(int socket, bool due = true) {
  char bytes[64];
  const ssize_t length =
      WaitSocketReadState(socket, due ? 20000 : 0) ? recv(socket, bytes, sizeof bytes, 0) : 0;
  return {bytes, static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

TEST(RtspUDP, ReceivesInOrderAndReportsToTheSender) {
  CStoppedClock clock;
  const int rtcp = BoundSocket(SOCK_DGRAM, 0);
  const int stranger = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in elsewhere = Loopback(0);
  elsewhere.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
  ASSERT_EQ(0, bind(stranger, reinterpret_cast<const sockaddr*>(&elsewhere), sizeof elsewhere));
  CRtspCamera server(
      {Ok(), Ok(),
       Ok("Transport: RTP/AVP;server_port=" + std::to_string(BoundPort(rtcp) - 1) + "\r\nSession: 1\r\n"),
       Ok("RTCP-Interval: 2000\r\n")});
  CSession session(server, RTP_TRANSPORT_UDP);
  ASSERT_TRUE(session.Play());

  using namespace std::string_literals;
  SendTo(rtcp, "\x80\xC8\0\6\xDE\xAD\xBE\xEF"s + std::string(20, 0), 3233);
  // What another host sends is neither picture nor report.
  SendTo(stranger, "injected", 3232);
  EXPECT_EQ("", session.Next(100));
  SendTo(stranger, "\x80\xC8\0\6\1\2\3\4"s + std::string(20, 0), 3233);
  SendTo(stranger, "injected", 3232);
  for (int i = 0; i < 150; ++i) SendTo(rtcp, "packet " + std::to_string(i) + std::string(1400, '.'), 3232);
  for (int i = 0; i < 150; ++i)
    ASSERT_EQ(0u, session.Next().find("packet " + std::to_string(i) + "."))
        << "a burst of a key picture is kept";

  clock.Step(2500);
  EXPECT_EQ("", session.Next(10));
  const std::string report = Received(rtcp), own = report.substr(4, 4);  // the session's own identity
  EXPECT_EQ("\x81\xC9\0\7"s + own + "\xDE\xAD\xBE\xEF"s + std::string(20, 0), report);
  EXPECT_EQ("", session.Next(10));
  EXPECT_EQ("", Received(rtcp, false)) << "once an interval";

  // A camera that does not ask for reports gets none.
  CRtspCamera quiet(
      {Ok(), Ok(),
       Ok("Transport: RTP/AVP;server_port=" + std::to_string(BoundPort(rtcp) - 1) + "\r\nSession: 1\r\n"),
       Ok()});
  CSession unasked(quiet, RTP_TRANSPORT_UDP);
  ASSERT_TRUE(unasked.Play());
  clock.Step(25000);
  EXPECT_EQ("", unasked.Next(10));
  EXPECT_EQ("", Received(rtcp, false));
  close(stranger);
  close(rtcp);
}

TEST(RtspRelay, OnlyReceivesAndKeepsThePathOpen) {
  const int relay = BoundSocket(SOCK_DGRAM, 0), peer = BoundSocket(SOCK_DGRAM, 0);
  GXT_RTP_PATH_DESCRIPTOR path{};
  CStoppedClock clock;
  const sockaddr_in there = Loopback(BoundPort(peer));
  std::memcpy(path.Data, &there.sin_addr, 4);
  std::memcpy(path.Data + 4, &there.sin_port, 2);
  CRTSP session("rtsp://nowhere/x", "", RTP_TRANSPORT_UDP, "", "", relay, &path, nullptr);
  EXPECT_TRUE(session.Connected() && session.Init(nullptr) && session.Login() && session.InitSession());
  SendTo(peer, "data", BoundPort(relay));
  unsigned char packet[64];
  EXPECT_EQ(4, session.WaitNextPacket(packet, sizeof packet, 20000));

  // The first keep-alive at once, nine more every half second, from then on every five seconds.
  std::vector<std::pair<long long, bool>> steps = {{2, true}};
  for (int i = 0; i < 9; ++i) steps.insert(steps.end(), {{400, false}, {200, true}});
  steps.insert(steps.end(), {{4000, false}, {1500, true}, {0, false}});
  for (const auto& [elapsedMs, due] : steps) {
    clock.Step(elapsedMs);
    EXPECT_EQ(0, session.WaitNextPacket(packet, sizeof packet, 0));
    EXPECT_EQ(due ? std::string(16, 0) : "", Received(peer, due));
  }
  session.Stop();
  close(peer);
  close(relay);
}
