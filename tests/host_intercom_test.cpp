// The host's intercom: calls among clients that write down what happens to them, and the ways of their sound.
#include "host/intercom/audio_relay.h"
#include "host/intercom/audio_stream.h"
#include "host/intercom/g711.h"
#include "host/intercom/intercom.h"
#include "host/intercom/rtsp_server.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"
#include "host/system/system.h"
#include "tests/support/eventually.h"
#include "tests/support/scripted_server.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string g_Log;  // what happened, in order; main thread

void Note(const std::string& what) {
  g_Log += (g_Log.empty() ? "" : " ") + what;
}

std::string TakeLog() {
  return std::exchange(g_Log, {});
}

class CParty : public CIntercomClient, public CIcomCallDelegate {
 public:
  explicit CParty(std::string name) : m_Name(std::move(name)) {
    CIntercomServer::Instance()->RegisterClient(this);
  }
  ~CParty() override { CIntercomServer::Instance()->RemoveClient(this); }
  CGXString IcomName() override { return m_Name; }
  bool TakesDefaultCalls() override { return m_Name != "C"; }
  int AnswerMode() override { return m_Name == "auto" ? ICOM_ANSWER_BY_ITSELF : ICOM_ANSWER_BY_USER; }
  bool HasAudioRX() override { return true; }
  int HandleBeginSession(CIntercomClient* caller, CALL_TYPE, CALL_TYPE, INCOMING_CALL_CTX) override {
    Note(m_Name + ":begin(" + Name(caller) + ")");
    return m_Name != "refuser" ? 1 : 0;
  }
  int HandleCancelSession() override { return Note(m_Name + ":cancel"), 1; }
  int BeginReceiveAudioFrom(CIntercomClient* client) override {
    return Note(m_Name + ":hears(" + Name(client) + ")"), 1;
  }
  int StopReceiveAudio() override { return Note(m_Name + ":deaf"), 1; }
  void CallAccepted(CIntercomClient* client, CIcomCallDelegate*, CALL_TYPE) override {
    Note(m_Name + ":accepted(" + Name(client) + ")");
  }
  void CallDeclined(CIntercomClient* client) override {
    Note(m_Name + ":declined(" + Name(client) + ")");
    if (m_bCancelsAll)
      for (CIntercomClient* const other : CIntercomServer::Instance()->Clients())
        CIntercomServer::Instance()->CancelCall(this, other);
  }
  bool m_bCancelsAll = false;

 private:
  static std::string Name(CIntercomClient* client) { return client->IcomName().Str(); }
  const std::string m_Name;
};

class Intercom : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SetNetworkInterface("lo"));
    g_Log.clear();
  }
  int Call(CParty* caller, std::vector<CIntercomClient*> targets) {
    return m_Server.InitiateCall(caller, targets.data(), static_cast<int>(targets.size()), caller,
                                 CALL_TYPE_TWO_WAY);
  }
  std::string Pass() {
    CSystem::Instance()->MainThreadPass();
    return TakeLog();
  }
  CIntercomServer& m_Server = *CIntercomServer::Instance();
};

TEST_F(Intercom, FirstToAcceptTalksAndTheOthersStopRinging) {
  CParty caller("C"), a("a"), b("b"), refuser("refuser");
  CIntercomClient* found[8] = {};
  EXPECT_EQ(m_Server.LoadDefaultCallTargets(&a, found, 8), 2);  // not itself, and not C
  EXPECT_EQ(m_Server.LoadDefaultCallTargets(&caller, found, 2), 2);
  EXPECT_EQ(found[1], &b);
  EXPECT_EQ(Call(&caller, {}), 0);
  EXPECT_EQ(Call(&caller, {&caller}), 0);
  EXPECT_EQ(Call(&caller, {&a, &b, &b, &refuser}), 1);
  EXPECT_EQ(TakeLog(), "a:begin(C) b:begin(C) refuser:begin(C)");  // no answer from within
  EXPECT_EQ(Call(&caller, {&a}), 0);
  EXPECT_EQ(Pass(), "C:declined(refuser)");
  m_Server.AcceptCall(&b);
  m_Server.AcceptCall(&a);
  EXPECT_EQ(TakeLog(), "");
  EXPECT_EQ(Pass(), "C:accepted(b) a:cancel C:hears(b) b:hears(C)");
  EXPECT_EQ(a.IcomState(), ICOM_CLIENT_IDLE);
  EXPECT_EQ(b.IcomState(), ICOM_CLIENT_TALKING);
  EXPECT_EQ(b.IcomPeer(), &caller);

  CParty second("D");
  EXPECT_EQ(Call(&second, {&b, &a}), 1);  // who talks is busy
  EXPECT_EQ(TakeLog(), "a:begin(D)");
  EXPECT_EQ(Pass(), "D:declined(b)");
  m_Server.DeclineCall(&a);
  EXPECT_EQ(Pass(), "D:declined(a)");
  EXPECT_EQ(second.IcomState(), ICOM_CLIENT_IDLE);
  m_Server.EndCall(&b);
  EXPECT_EQ(Pass(), "C:deaf b:deaf C:cancel");
  EXPECT_EQ(caller.IcomState(), ICOM_CLIENT_IDLE);
}

TEST_F(Intercom, CancelledCallsAndLateAnswers) {
  CParty caller("C"), a("a"), b("b"), itself("auto");
  Call(&caller, {&a, &b});
  TakeLog();
  m_Server.AcceptCall(&a);
  m_Server.CancelCall(&caller, &a);
  EXPECT_EQ(TakeLog(), "a:cancel");
  m_Server.CancelCall(&caller, &b);
  Call(&caller, {&a});
  EXPECT_EQ(Pass(), "b:cancel a:begin(C)");  // the answer to the former call is not one to this
  caller.m_bCancelsAll = true;
  Call(&b, {&itself});
  m_Server.DeclineCall(&a);
  EXPECT_EQ(Pass(), "auto:begin(b) b:accepted(auto) b:hears(auto) auto:hears(b) C:declined(a)");
}

// ---- Ways of sound ----

struct CEar : CAudioStreamTarget {
  void ProcessAudioSourceAddressInfo(GXT_RTP_PATH_DESCRIPTOR*) override {}
  CIntercomClient* IntercomClient() override { return nullptr; }

  // What comes within a while, or nothing; and from which port. A hello may come more than once.
  std::string Hear(unsigned milliseconds = 20000) {
    while (WaitSocketReadState(Socket, milliseconds)) {
      char data[2048];
      sockaddr_in from{};
      socklen_t size = sizeof from;
      const ssize_t length = recvfrom(Socket, data, sizeof data, 0, reinterpret_cast<sockaddr*>(&from), &size);
      FromPort = ntohs(from.sin_port);
      if (!IsRTPHello(reinterpret_cast<unsigned char*>(data), static_cast<int>(length)))
        return {data, static_cast<size_t>(std::max<ssize_t>(length, 0))};
      ++Hellos;
    }
    return "";
  }
  ~CEar() override { close(Socket); }
  const int Socket = BoundSocket(SOCK_DGRAM, 0);
  int FromPort = 0, Hellos = 0;
};

int Send(CRTSPClient* client, const std::string& text) {
  return client->SendPacket(reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
}

TEST(AudioWays, DirectListenersHearFromTheSourcesPort) {
  CRTSPServer server;
  CEar ear;
  GXT_RTP_PATH_DESCRIPTOR path{};
  EXPECT_EQ(server.AttachAudioClientLOCAL(&ear, &path, 18600), 0);
  SetPathAddress(&path, htonl(INADDR_LOOPBACK), 0);
  EXPECT_EQ(server.AttachAudioClientLOCAL(&ear, &path, 18600), 0);  // nobody knows its port
  ear.AudioSourcePort(BoundPort(ear.Socket));
  for (int anew = 0; anew < 2; ++anew) EXPECT_EQ(server.AttachAudioClientLOCAL(&ear, &path, 18600), 1);
  ASSERT_EQ(server.NClients(RTSP_CLIENT_AUDIO), 1);
  ASSERT_TRUE(server.Client(0)->ReadyForAudio());
  EXPECT_EQ(Send(server.Client(0), "sound"), 5);
  EXPECT_EQ(ear.Hear(), "sound");
  EXPECT_EQ(ear.FromPort, 18600);
  EXPECT_TRUE(server.DetachAudioClient(&ear));
  EXPECT_FALSE(server.DetachAudioClient(&ear));
  EXPECT_EQ(server.NClients(RTSP_CLIENT_ALL), 0);
  EXPECT_EQ(server.Client(0), nullptr);
}

TEST(AudioWays, ARelayedPathOpensWithHellosAndOnlyForItsTwoEnds) {
  CRTSPServer server;
  CEar ear, stranger;
  auto relay = std::make_unique<CAudioRelay>(htonl(INADDR_LOOPBACK));
  ASSERT_TRUE(relay->Works());
  const GXT_RTP_PATH_DESCRIPTOR source = relay->SourcePath(), listener = relay->ListenerPath(), none{};
  const unsigned char hello[RTP_HELLO_BYTES] = {};
  ASSERT_EQ(server.AttachAudioClientSTUN(&ear, &none), 0);
  ASSERT_EQ(server.AttachAudioClientSTUN(&ear, &source), 1);
  CRTSPClient* const client = server.Client(0);
  EXPECT_FALSE(client->ReadyForAudio());
  STUN_SendPacket(ear.Socket, hello, RTP_HELLO_BYTES, nullptr, &listener, nullptr);
  EXPECT_TRUE(Eventually(20, [&] { return client->ReadyForAudio(); }));  // both ends are there
  for (const char* text : {"sound", "more"}) {
    Send(client, text);
    EXPECT_EQ(ear.Hear(), text);
  }
  EXPECT_GE(ear.Hellos, 1);

  for (const GXT_RTP_PATH_DESCRIPTOR& leg : {source, listener}) {
    STUN_SendPacket(stranger.Socket, hello, RTP_HELLO_BYTES, nullptr, &leg, nullptr);
    STUN_SendPacket(stranger.Socket, reinterpret_cast<const unsigned char*>("noise"), 5, nullptr, &leg,
                    nullptr);
  }
  Send(client, "last");
  EXPECT_EQ(ear.Hear(), "last");
  EXPECT_EQ(stranger.Hear(50), "");
  relay.reset();
  Send(client, "lost");
  EXPECT_EQ(ear.Hear(50), "");
}

// Values of another implementation (Python audioop).
TEST(G711, AgreesWithTheTable) {
  const struct {
    short pcm;
    unsigned char ulaw;
  } cases[] = {{0, 0xFF},    {-1, 0x7F},   {32767, 0x80}, {-32768, 0x00}, {120, 0xF0},
               {-120, 0x70}, {1000, 0xCE}, {-1000, 0x4E}, {8031, 0xA0},   {16191, 0x90},
               {4063, 0xAF}, {356, 0xE1},  {3999, 0xAF}};
  for (const auto& [pcm, ulaw] : cases) {
    unsigned char code = 0;
    EXPECT_EQ(G711::ULawEncode(&code, &pcm, sizeof pcm), 1);
    EXPECT_EQ(code, ulaw) << pcm;
  }
  for (int code = 0; code < 256; ++code) {
    const auto ulaw = static_cast<unsigned char>(code);
    short pcm = 0;
    unsigned char again = 0;
    EXPECT_EQ(G711::ULawDecode(&pcm, &ulaw, 1), 2);
    G711::ULawEncode(&again, &pcm, sizeof pcm);
    EXPECT_EQ(again, code == 0x7F ? 0xFF : code);  // both are zero
  }
}

}  // namespace
