// What goes over the wire in a call to a camera's speaker, and what is read from it, without a socket.
#include "audio/rtp_packet.h"
#include "audio/sip_farewell.h"
#include "audio/volume_queue.h"
#include "tests/support/stopped_clock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Random identifiers become their kind, so that what is left is fixed.
std::string Fixed(const CGXString& message) {
  const std::regex id("Call-ID: [A-Za-z0-9]{16}@"), tag("tag=[A-Za-z0-9]{8}\r"),
      branch("branch=[A-Za-z0-9]{16};"), session("session-id:[0-9]{16}\r");
  std::string text = std::regex_replace(message.Str(), id, "Call-ID: ID@");
  text = std::regex_replace(text, tag, "tag=TAG\r");
  text = std::regex_replace(text, branch, "branch=BRANCH;");
  return std::regex_replace(text, session, "session-id:DIGITS\r");
}

TEST(AudioSIP, RequestsReadAsCamerasExpectThem) {
  CSIPDialogue dialogue("0002D1", "192.168.1.64", "192.168.1.2", 30424);
  EXPECT_EQ(
      "OPTIONS sip:0002D1@192.168.1.64:5060 SIP/2.0\r\nTo: <sip:0002D1@192.168.1.64:5060>\r\n"
      "From: <sip:norva_system@192.168.1.2:30424>;tag=TAG\r\n"
      "Via: SIP/2.0/UDP 192.168.1.2:30424;branch=BRANCH;rport\r\nCall-ID: ID@192.168.1.2\r\n"
      "Contact: <sip:norva_system@192.168.1.2:30424>\r\nCSeq: 1 OPTIONS\r\nMax-Forwards: 70\r\n"
      "Content-Type: application/sdp\r\nContent-Length: 0\r\n\r\n",
      Fixed(dialogue.Request("OPTIONS", 1, {})));

  const CGXString session = dialogue.SessionDescription(4294967295U, 5556);
  EXPECT_EQ(
      "v=0\r\no=SIP 4294967295 0 IN IP4 192.168.1.2\r\ns=SIPUA\r\nc=IN IP4 192.168.1.2\r\nt=0 0\r\n"
      "a=x-session-id:DIGITS\r\nm=audio 5556 RTP/AVP 0\r\nb=AS:64\r\na=rtpmap:0 pcmu/8000\r\na=sendonly\r\n",
      Fixed(session));
  const std::string invite = dialogue.Request("INVITE", 2, session).Str();
  EXPECT_TRUE(
      invite.ends_with("Content-Length: " + std::to_string(session.GetLength()) + "\r\n\r\n" + session.Str()));

  dialogue.ToTag(";tag=c7");
  EXPECT_EQ(
      "ACK sip:0002D1@192.168.1.64:5060 SIP/2.0\r\nTo: <sip:0002D1@192.168.1.64:5060>;tag=c7\r\n"
      "From: <sip:norva_system@192.168.1.2:30424>;tag=TAG\r\n"
      "Via: SIP/2.0/UDP 192.168.1.2:30424;branch=BRANCH;rport\r\nCall-ID: ID@192.168.1.2\r\n"
      "CSeq: 2 ACK\r\nMax-Forwards: 70\r\nContent-Length: 0\r\n\r\n",
      Fixed(dialogue.Request("ACK", 2, {})));
}

TEST(AudioSIP, AnswersInfoWithItsOwnHeaders) {
  const char* request =
      "INFO sip:norva_system@10.0.0.2:30008 SIP/2.0\r\nVia:SIP/2.0/UDP 10.0.0.9;branch=z9\r\n"
      "From:   <sip:cam@10.0.0.9>;tag=1\r\nTo: <sip:norva_system@10.0.0.2>\r\nCall-ID: x@y\r\nCSeq: 4 "
      "INFO\r\n\r\n";
  const std::string headers =
      "To: <sip:norva_system@10.0.0.2>\r\nFrom: <sip:cam@10.0.0.9>;tag=1\r\n"
      "Via: SIP/2.0/UDP 10.0.0.9;branch=z9\r\nCall-ID: x@y\r\n";
  const std::string end = "CSeq: 4 INFO\r\nMax-Forwards: 70\r\nContent-Length: 0\r\n\r\n";
  EXPECT_EQ("SIP/2.0 200 OK\r\n" + headers + "Contact: <sip:us@here>\r\n" + end,
            CSIPMessage::InfoAnswer(request, "sip:us@here").Str());
  EXPECT_EQ("INFO sip:cam@there SIP/2.0\r\n" + headers + end,
            CSIPMessage::InfoRequest(request, "sip:cam@there").Str());
}

TEST(AudioSIP, FindsTheAnswerAmongWhatTheCameraSays) {
  const std::string ok = "SIP/2.0 200 OK\r\nTo: <sip:a@b>;tag=77;x=1\r\nFrom: c;tag=9\r\n\r\n";
  struct {
    std::vector<std::string> Pieces;
    unsigned Outcome;  // of the last piece
    int Port;
    std::string ToTag;
  } const cases[] = {
      {{"SIP/2.0 100 Trying\r\nTo: a;tag=1\r\n\r\n"}, CInviteAnswer::WAITING, 5558, ""},
      {{"SIP/2.0 180 Ringing\r\n\r\n", ok + "m=audio 6000 RTP/AVP 0\r\n"}, 3, 6000, ";tag=77;x=1"},
      {{"SIP/2.0 200 OK\r\nTo: a;tag", "=5\r\n\r\nm=audio 700"}, 3, 700, ";tag=5"},
      {{"SIP/2.0 183 Session Progress\r\nTo: a;tag=1\r\n\r\nm=audio 6002\r\n"}, CInviteAnswer::OVER, 6002, ""},
      {{ok}, CInviteAnswer::ACCEPTED, 5558, ";tag=77;x=1"},
      {{"SIP/2.0 200 OK\r\nTo: a\r\nFrom: c;tag=9\r\n\r\nm=audio"}, 3, 5558, ""},
      {{ok + "m=audio 99999999999999999999\r\n"}, 3, 5558, ";tag=77;x=1"},
      {{std::string(SIP_MESSAGE_BYTES, 'x'), ok + "m=audio 6\r\n"}, 3, 6, ";tag=77;x=1"},
  };
  for (const auto& one : cases) {
    CInviteAnswer answer;
    unsigned outcome = 0;
    for (const std::string& piece : one.Pieces) {
      ASSERT_GE(answer.Room().size(), piece.size());
      std::memcpy(answer.Room().data(), piece.data(), piece.size());
      outcome = answer.Added(piece.size());
    }
    EXPECT_EQ(one.Outcome, outcome) << one.Pieces.back();
    EXPECT_EQ(one.Port, answer.RTPPort()) << one.Pieces.back();
    EXPECT_EQ(one.ToTag, answer.ToTag().Str()) << one.Pieces.back();
  }
}

// What is sent for each message, or for time that passes, as method and tag.
TEST(AudioSIP, TakesBackACallThatWasGivenUp) {
  const struct {
    const char* What;
    std::vector<std::string> Before;                        // answers while the call was being set up
    std::vector<std::pair<std::string, std::string>> Then;  // an answer, or seconds; what is sent
  } cases[] = {
      {"late",
       {"100 INVITE"},
       {{"180 INVITE a", ""}, {"200 INVITE b", "ACKb BYEb "}, {"200 BYE b", ""}, {"40", ""}}},
      {"before", {"200 INVITE a"}, {{"0", "ACKa BYEa "}, {"481 BYE a", ""}, {"1", ""}}},
      {"twice",
       {},
       {{"200 INVITE a", "ACKa BYEa "},
        {"200 INVITE a", "ACKa "},
        {"0.6", "BYEa "},
        {"1.1", "BYEa "},
        {"200 BYE a", ""},
        {"9", ""}}},
      {"from two", {}, {{"200 INVITE a", "ACKa BYEa "}, {"200 INVITE b", "ACKb BYEb "}}},
      {"refused, then not", {"486 INVITE a"}, {{"0", "ACKa "}, {"200 INVITE b", "ACKb BYEb "}}},
      {"refused", {"180 INVITE a"}, {{"603 INVITE c", "ACKc "}, {"40", ""}}},
      {"of another request", {"200 OPTIONS x"}, {{"200 OPTIONS x", ""}, {"40", ""}}},
      {"never rings", {}, {{"31", ""}, {"2", ""}, {"200 INVITE a", "over"}}},
      {"rings for ever",
       {"180 INVITE a"},
       {{"31", ""}, {"1", "CANCEL "}, {"200 CANCEL a", ""}, {"487 INVITE a", "ACKa "}, {"1", "over"}}},
      {"rings, and answers the CANCEL", {"180 INVITE a"}, {{"32", "CANCEL "}, {"200 INVITE a", "ACKa BYEa "}}},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.What);
    CSIPDialogue dialogue("0002D1", "192.168.1.64", "192.168.1.2", 30424);
    const auto message = [&dialogue](const std::string& text) {
      std::istringstream words(text);
      std::string status, method, tag;
      words >> status >> method >> tag;
      return "SIP/2.0 " + status + " X\r\nTo: <a>;tag=" + tag + "\r\nCall-ID: " + dialogue.CallID().Str() +
             "\r\nCSeq: 2 " + method + "\r\n\r\n";
    };
    CInviteProgress progress;
    for (const std::string& text : one.Before) progress.Observe(message(text), dialogue.CallID());
    CSIPFarewell::Clock::time_point now{};
    CSIPFarewell farewell(dialogue, 2, progress, now);
    const bool atOnce = one.Then[0].first == "0";
    EXPECT_TRUE(atOnce || farewell.Tick(now).empty());
    EXPECT_TRUE(farewell.Take("SIP/2.0 200 OK\r\nCall-ID: other\r\nCSeq: 2 INVITE\r\n\r\n", now).empty());
    for (const auto& [what, wanted] : one.Then) {
      if (wanted == "over") {
        EXPECT_TRUE(farewell.Over());
        break;
      }
      CSIPFarewell::Requests requests;
      if (what.find(' ') == what.npos) {
        now += std::chrono::milliseconds(std::lround(std::stod(what) * 1000));
        requests = farewell.Tick(now);
      } else {
        requests = farewell.Take(message(what), now);
      }
      std::string sent;
      for (const CGXString& request : requests) {
        const std::string text = request.Str();
        const size_t tag = text.find(">;tag=");
        sent +=
            text.substr(0, text.find(' ')) + (tag < text.find("From:") ? text.substr(tag + 6, 1) : "") + " ";
      }
      EXPECT_EQ(wanted, sent) << what;
    }
  }
}

TEST(AudioRTP, PacketsCountTheirTimeIn32Bits) {
  constexpr uint32_t IDENTITY = 0x11223344;
  CPCMUPacketBuilder packets(IDENTITY);
  const unsigned char sound[] = {0xFF, 0x00, 0x7F};
  unsigned sequence = 0;
  for (const auto& [milliseconds, timestamp] :
       {std::pair{0U, 0U}, {20U, 160U}, {536870U, 4294960U}, {536871U, 0U}, {536891U, 160U}}) {
    const auto packet = packets.Build(sound, milliseconds);
    ASSERT_EQ(15U, packet.size());
    unsigned char expected[15] = {0x80, 0, 0, static_cast<unsigned char>(sequence++)};
    for (unsigned i = 0; i < 4; ++i) expected[4 + i] = static_cast<unsigned char>(timestamp >> (24 - 8 * i));
    std::memcpy(expected + 8, &IDENTITY, 4);
    std::memcpy(expected + 12, sound, 3);
    EXPECT_EQ(0, std::memcmp(expected, packet.data(), sizeof expected)) << milliseconds;
  }
  EXPECT_TRUE(packets.Build(std::vector<unsigned char>(4085), 0).empty());
  EXPECT_EQ(4096U, packets.Build(std::vector<unsigned char>(4084), 0).size());
}

TEST(AudioVolume, MeterTakesWhatWasPlayed) {
  CStoppedClock clock;
  CVolumeQueue queue;
  for (int i = 0; i < 257; ++i) queue.Push(1000 - i, 8);
  EXPECT_EQ(999, queue.Pop(1));  // the first of all was dropped
  EXPECT_EQ(999, queue.Pop(8));  // its other 7, and 1 of the next
  EXPECT_EQ(998, queue.Pop(7));
  EXPECT_TRUE(queue.Congested());  // 254 * 8 are queued, and somebody takes them
  clock.Step(250);
  EXPECT_FALSE(queue.Congested());  // he has gone
  EXPECT_EQ(997, queue.Pop(32));
  EXPECT_FALSE(queue.Congested());  // exactly 2000
  queue.Push(5, 0);
  EXPECT_EQ(993, queue.Pop(1 << 30));
  EXPECT_EQ(0, queue.Pop(100));
}

}  // namespace
