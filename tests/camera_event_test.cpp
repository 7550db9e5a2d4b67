// Notifications: from the bytes that a camera sends to the host's event, and the life of the listener.
#include "camera/notification_framer.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"
#include "tests/camera_script.h"
#include "tests/support/stopped_clock.h"
#include "util/owned_socket.h"

namespace {

constexpr unsigned EVENTS_ON = 0x800;
const std::string ACCEPTED =
    "HTTP/1.1 202 Accepted\r\nContent-Length: 0\r\nServer: NORVA Controller\r\nConnection: close\r\n\r\n";

std::string Item(const std::string& part, const std::string& attributes) {
  return "<t:" + part + "><t:SimpleItem " + attributes + "></t:SimpleItem></t:" + part + ">";
}

std::string Message(const std::string& parts) {
  return "<w:NotificationMessage><w:Topic Dialect=\"d\">tns1:RuleEngine/CellMotionDetector/Motion</w:Topic>"
         "<w:Message><t:Message UtcTime=\"now\">" +
         parts + "</t:Message></w:Message></w:NotificationMessage>";
}

std::string Notification(const std::string& messages) {
  return "<?xml version=\"1.0\"?>\r\n<s:Envelope><s:Body><w:Notify>" + messages +
         "</w:Notify></s:Body></s:Envelope>\r\n";
}

std::string Motion(const std::string& value) {
  return Notification(Message(Item("Source", "Name=\"Src\" Value=\"V1\"") +
                              Item("Data", "Name=\"IsMotion\" Value=\"" + value + "\"")));
}

std::string Post(const std::string& body, const std::string& length) {
  return "POST /subscribe HTTP/1.1\r\nHost: c\r\n" + length + "\r\n" + body;
}
std::string Post(const std::string& body) {
  return Post(body, "Content-Length: " + std::to_string(body.size()) + "\r\n");
}

// Counts the host's events. The sender is done before the listener looks at what it sent, so they are waited
// for.
class CEventCount {
 public:
  CEventCount() {
    CEventServer::Instance()->DispatchEvents();  // what is left of an earlier test
    CEventServer::Instance()->Receiver([this](const GXT_EVENT& event) {
      if (event.Event == 2275) ++m_ByComponent[event.ComponentID];
    });
  }
  ~CEventCount() { CEventServer::Instance()->Receiver({}); }
  CEventCount(const CEventCount&) = delete;
  CEventCount& operator=(const CEventCount&) = delete;
  int Of(int component) {
    CEventServer::Instance()->DispatchEvents();
    return m_ByComponent[component];
  }

 private:
  std::map<int, int> m_ByComponent;
};

// A sender that stays connected.
class CSender {
 public:
  explicit CSender(int port) : m_Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in to = Loopback(static_cast<unsigned short>(port));
    m_bConnected = connect(m_Socket.Get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
  }
  bool Connected() const { return m_bConnected; }
  bool Send(const std::string& bytes) const {
    return send(m_Socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }
  void EndSending() const { shutdown(m_Socket.Get(), SHUT_WR); }
  // What comes until the listener closes the connection.
  std::string Answer() const {
    std::string answer;
    char bytes[512];
    while (WaitSocketReadState(m_Socket.Get(), 40000)) {
      const ssize_t n = recv(m_Socket.Get(), bytes, sizeof bytes, 0);
      if (n <= 0) return answer;
      answer.append(bytes, static_cast<size_t>(n));
    }
    return answer + "(still open)";
  }

 private:
  const COwnedSocket m_Socket;
  bool m_bConnected = false;
};

std::string Tell(int port, const std::string& request) {
  const CSender sender(port);
  return sender.Send(request) ? sender.Answer() : "(not sent)";
}

class Events : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SetNetworkInterface("lo"));
    m_pCamera = StaticCamera(m_Script.URL());
    m_pCamera->ID(7);
  }

  void Load() {
    ASSERT_TRUE(m_pCamera->CheckRunState());
    ASSERT_TRUE(Eventually(20, [&] { return Listens(); }));
  }
  bool Listens() const { return CSender(m_pCamera->EventPort()).Connected(); }
  std::string Tell(const std::string& request) const { return ::Tell(m_pCamera->EventPort(), request); }
  bool Counts(int events) {
    return Eventually(20, [&] { return m_Count.Of(7) >= events; }) && m_Count.Of(7) == events;
  }

  CScriptedCamera m_Script;
  std::unique_ptr<CONVIFCam> m_pCamera;
  CEventCount m_Count;
};

// However the bytes are cut, a request is whole at the same byte and has the same body.
TEST(Framer, FindsTheBodyInPiecesOfAnySize) {
  using Result = CNotificationFramer::Result;
  const std::string full(9000, 'x');
  const struct {
    const char* Name;
    std::string Bytes, Body;
    Result End;    // ENDED: the sender closes behind the last byte
    size_t Taken;  // of Bytes
  } cases[] = {
      {"length", "POST / HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello", "hello", Result::COMPLETE, 43},
      {"more than announced", "P\r\nContent-Length:   2\r\nA: b\r\n\r\nhe", "he", Result::COMPLETE, 34},
      {"no blank", "P\r\nContent-Length:3\r\n\r\nabc", "abc", Result::COMPLETE, 26},
      {"no body", "P\r\nContent-Length: 0\r\n\r\n", "", Result::COMPLETE, 24},
      {"signed", "P\r\nContent-Length: +3\r\n\r\nabc", "abc", Result::COMPLETE, 28},
      {"no number", "P\r\nContent-Length: x\r\n\r\n", "", Result::COMPLETE, 24},
      {"negative", "P\r\nContent-Length: -9\r\n\r\n", "", Result::COMPLETE, 25},
      {"other letters", "P\r\ncontent-length: 2\r\n\r\nhe", "he", Result::ENDED, 26},
      {"no length", "P\r\n\r\nhello", "hello", Result::ENDED, 10},
      {"too short", "P\r\nContent-Length: 9\r\n\r\nhello", "hello", Result::ENDED, 29},
      {"endless number", "P\r\nContent-Length: 99999999999999999999999\r\n\r\nhi", "hi", Result::ENDED, 48},
      {"header only", "P\r\nContent-Length: 9\r\n", "", Result::ENDED, 22},
      {"a word alone", "P\r\n\r\nContent-Length", "", Result::COMPLETE, 19},
      {"full", "P\r\n\r\n" + full, full.substr(0, 8191 - 5), Result::ENDED, 8191},
      {"longer than there is room", "P\r\nContent-Length: 9000\r\n\r\n" + full, full.substr(0, 8191 - 27),
       Result::ENDED, 8191},
  };
  for (const auto& c : cases)
    for (const size_t piece : {size_t{1}, size_t{2}, size_t{7}, size_t{100}, size_t{8191}}) {
      SCOPED_TRACE(std::string(c.Name) + " in pieces of " + std::to_string(piece));
      CNotificationFramer framer;
      framer.Begin();
      size_t taken = 0;
      Result result = Result::MORE;
      while (result == Result::MORE) {
        const std::span<char> space = framer.Space();
        const size_t bytes = std::min({piece, space.size(), c.Bytes.size() - taken});
        std::copy_n(c.Bytes.begin() + static_cast<ptrdiff_t>(taken), bytes, space.begin());
        taken += bytes;
        result = framer.Received(static_cast<ssize_t>(bytes));
      }
      EXPECT_EQ(std::string(framer.Body().begin(), framer.Body().end()), c.Body);
      EXPECT_EQ(result, c.End);
      if (c.End == Result::ENDED || piece == 1) {
        EXPECT_EQ(taken, c.Taken);
      }
    }
}

TEST_F(Events, NotificationsSetTheMotionLevel) {
  const std::string on = Item("Data", "Name=\"IsMotion\" Value=\"true\"");
  const struct {
    const char* Name;
    std::string Body;
    int Level, Events;
  } cases[] = {
      {"motion", Motion("true"), 100, 1},
      {"no motion", Motion("false"), 0, 0},
      {"another word", Motion("True"), 0, 0},
      {"no value", Notification(Message(Item("Data", "Name=\"IsMotion\""))), 0, 0},
      {"other data", Notification(Message(Item("Data", "Name=\"State\" Value=\"true\""))), 50, 0},
      {"other letters", Notification(Message(Item("Data", "Name=\"ismotion\" Value=\"true\""))), 50, 0},
      {"no data", Notification(Message(Item("Key", "Name=\"IsMotion\" Value=\"true\""))), 50, 0},
      {"the first of two",
       Notification(Message(on) + Message(Item("Data", "Name=\"IsMotion\" Value=\"false\""))), 100, 1},
      {"first item",
       Notification(Message("<t:Data><t:SimpleItem Name=\"A\" Value=\"1\"></t:SimpleItem>" + on + "</t:Data>")),
       50, 0},
      {"no notification", "<s:Envelope><s:Body>" + on + "</s:Body></s:Envelope>", 50, 0},
      {"no body", Message(on), 50, 0},
      {"cut", Motion("true").substr(0, 150), 50, 0},
      {"no XML", "IsMotion=true", 50, 0},
      {"nothing", "", 50, 0},
  };
  EXPECT_EQ(m_pCamera->MotionLevel(), -1);
  int events = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    // From a level that the case would change: 50 in the table stands for "as before".
    for (const char* before : {"false", "true"}) {
      std::string text = Motion(before), body = c.Body;
      m_pCamera->ProcessEvent(text.data(), static_cast<int>(text.size()));
      const int was = m_pCamera->MotionLevel();
      m_pCamera->ProcessEvent(body.data(), static_cast<int>(body.size()));
      EXPECT_EQ(m_pCamera->MotionLevel(), c.Level == 50 ? was : c.Level);
    }
    events += 1 + 2 * c.Events;
    EXPECT_EQ(m_Count.Of(7), events);
  }
  const CTraceKeeper trace(m_pCamera.get());
  std::string text = Motion("true");
  m_pCamera->ProcessEvent(text.data(), static_cast<int>(text.size()));
  EXPECT_EQ(trace.Lines(), std::vector<std::string>{"Src Src:V1 Key : Data IsMotion:true"});
}

TEST_F(Events, TheListenerAnswersWhatIsWholeAndServesTheNext) {
  Load();
  EXPECT_EQ(Tell(Post(Motion("true"))), ACCEPTED);
  EXPECT_TRUE(Counts(1));
  {
    const CSender sender(m_pCamera->EventPort());
    const std::string request = Post(Motion("true"));
    for (const char byte : request) ASSERT_TRUE(sender.Send({byte}));
    EXPECT_EQ(sender.Answer(), ACCEPTED);
    EXPECT_TRUE(Counts(2));
  }
  {
    const CSender sender(m_pCamera->EventPort());
    ASSERT_TRUE(sender.Send(Post(Motion("true"), "")));
    sender.EndSending();
    EXPECT_EQ(sender.Answer(), "");  // without a length there is nothing to answer before the end
    EXPECT_TRUE(Counts(3));
  }
  EXPECT_EQ(Tell(Post("")), ACCEPTED);
  // Who sends without end is cut off, what is there is read; who leaves in the middle harms nobody.
  const CSender endless(m_pCamera->EventPort());
  for (int i = 0; i < 10000 && endless.Send(Post(Motion("true") + std::string(1000, ' '), "")); ++i) {
  }
  EXPECT_TRUE(Counts(4));
  CSender(m_pCamera->EventPort()).Send("POST /subscribe");
  EXPECT_EQ(Tell(Post(Motion("false"))), ACCEPTED);
  EXPECT_TRUE(Eventually(20, [&] { return m_pCamera->MotionLevel() == 0; }));
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(Tell(Post(Motion("true"))), ACCEPTED);
  EXPECT_TRUE(Counts(1004));
}

TEST_F(Events, ASilentSenderCountsAsGone) {
  Load();
  const CSender silent(m_pCamera->EventPort());
  ASSERT_TRUE(silent.Send(Post(Motion("true"), "")));
  EXPECT_EQ(Tell(Post("")), ACCEPTED);  // when the silent one's time is over
  EXPECT_EQ(silent.Answer(), "");
  EXPECT_TRUE(Counts(1));
}

TEST_F(Events, TheSubscriptionIsRenewedAndOutlivesARefusal) {
  CStoppedClock clock;
  Load();
  // Each step, and the requests that there are behind it; the last sets the clock back, which costs one renewal
  // too many.
  const struct {
    long long StepMs;
    bool Refused;
    size_t Requests;
  } steps[] = {{0, false, 1}, {30000, false, 1}, {21000, true, 2}, {51000, false, 3}, {-3600000, false, 4}};
  for (const auto& step : steps) {
    m_Script.Set("Subscribe", "");
    if (step.Refused) m_Script.SetWhole("Subscribe", CScriptedCamera::SILENT);
    clock.Step(step.StepMs);
    EXPECT_TRUE(Eventually(20, [&] { return m_Script.Requests("Subscribe").size() == step.Requests; }));
    EXPECT_EQ(Tell(Post("")), ACCEPTED);  // served behind the renewal: then its timer runs anew
  }
  EXPECT_EQ(Tell(Post(Motion("true"))), ACCEPTED);
  EXPECT_TRUE(Counts(1));
}

TEST_F(Events, AResetEndsTheListenerAndALoadStartsANewOne) {
  for (int i = 0; i < 3; ++i) {
    Load();
    EXPECT_EQ(Tell(Post(Motion("true"))), ACCEPTED);
    m_pCamera->SetErrorState();
    EXPECT_TRUE(Eventually(20, [&] { return !Listens(); }));
  }
  EXPECT_TRUE(Counts(3));
  // Loaded again before the former listener has noticed.
  for (int i = 0; i < 20; ++i) {
    m_pCamera->SetErrorState();
    ASSERT_TRUE(m_pCamera->CheckRunState());
  }
  Load();
  EXPECT_EQ(Tell(Post(Motion("true"))), ACCEPTED);
  EXPECT_TRUE(Counts(4));
  // A camera that refuses to subscribe has no listener, not even the former one.
  m_pCamera->SetErrorState();
  m_Script.SetWhole("Subscribe", CScriptedCamera::SILENT);
  ASSERT_TRUE(m_pCamera->CheckRunState());
  EXPECT_EQ(m_pCamera->RunState() & EVENTS_ON, EVENTS_ON);
  EXPECT_TRUE(Eventually(20, [&] { return !Listens(); }));
}

// Events that do not come have a reason, and come when it is gone.
TEST_F(Events, SaysWhyThereAreNoneAndListensWhenItsPortIsFree) {
  EXPECT_EQ(m_pCamera->EventReport().State, GXT_REPORT::STATE::Off);
  m_Script.Fault("Subscribe");
  ASSERT_TRUE(m_pCamera->CheckRunState());
  EXPECT_EQ(m_pCamera->EventReport().State, GXT_REPORT::STATE::Failed);
  EXPECT_EQ(m_pCamera->EventReport().Reason, "the camera refuses to send events (a fault without words)");
  m_pCamera->SetErrorState();
  m_Script.Set("Subscribe", "");
  {
    const COwnedSocket other(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in port = Loopback(m_pCamera->EventPort());
    ASSERT_EQ(SetReuseAddress(other.Get()), 0);  // behind the connections of earlier tests
    ASSERT_EQ(bind(other.Get(), reinterpret_cast<const sockaddr*>(&port), sizeof port), 0);
    ASSERT_EQ(listen(other.Get(), 1), 0);
    ASSERT_TRUE(m_pCamera->CheckRunState());
    EXPECT_TRUE(Eventually(20, [&] { return m_pCamera->EventReport().State == GXT_REPORT::STATE::Failed; }));
    EXPECT_GE(m_pCamera->EventReport().Reason.Find("taken"), 0);
    EXPECT_GT(m_pCamera->EventReport().RetryMs, 0);
  }
  EXPECT_TRUE(Eventually(20, [&] { return m_pCamera->CheckRunState() && Listens(); }));
  EXPECT_TRUE(Eventually(20, [&] { return m_pCamera->EventReport().State == GXT_REPORT::STATE::Running; }));
}

TEST_F(Events, SixtyFourCamerasListenAndTheNextDoesWithout) {
  m_pCamera.reset();
  const int asserts = AssertCount();
  std::vector<std::unique_ptr<CONVIFCam>> cameras;
  for (int i = 0; i < 65; ++i) {
    cameras.push_back(StaticCamera(m_Script.URL()));
    cameras.back()->ID(100 + i);
    EXPECT_EQ(cameras.back()->EventPort(), i < 64 ? 8795 + 2 * i : 0);
    ASSERT_TRUE(cameras.back()->CheckRunState());
  }
  EXPECT_EQ(AssertCount(), asserts + 1);
  const std::string motion = Post(Motion("true"));
  for (int i = 0; i < 64; ++i) {
    ASSERT_TRUE(Eventually(20, [&] { return ::Tell(8795 + 2 * i, motion) == ACCEPTED; })) << i;
    EXPECT_TRUE(Eventually(20, [&] { return m_Count.Of(100 + i) == 1; })) << i;
  }
  // They go in any order, and their ports with them: the next camera takes the lowest one that is free.
  for (const size_t i : {size_t{1}, size_t{64}, size_t{0}, size_t{40}}) cameras[i].reset();
  for (const int port : {8795, 8797, 8875}) {
    cameras.push_back(StaticCamera(m_Script.URL()));
    EXPECT_EQ(cameras.back()->EventPort(), port);
    ASSERT_TRUE(cameras.back()->CheckRunState());
    EXPECT_TRUE(Eventually(20, [&] { return ::Tell(port, motion) == ACCEPTED; }));
  }
  while (!cameras.empty()) {  // the first, the last, the first ...
    cameras.erase(cameras.size() % 2 == 0 ? cameras.begin() : cameras.end() - 1);
  }
  EXPECT_FALSE(CSender(8795).Connected());
}

}  // namespace
