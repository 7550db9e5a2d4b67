// The host's threads and lists: the main-thread lock, components that come and go, notices, traces, events.
#include "host/comm_thread.h"
#include "host/event_server.h"
#include "host/gxassert.h"
#include "host/intercom.h"
#include "host/main_lock.h"
#include "host/sink_server.h"
#include "host/socket.h"
#include "host/system.h"
#include "host/trace.h"
#include "host/video.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <random>
#include <thread>

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

bool WaitUntil(const std::function<bool()>& holds, std::chrono::milliseconds limit = 10s) {
  for (const auto end = steady_clock::now() + limit; steady_clock::now() < end;
       std::this_thread::sleep_for(1ms))
    if (holds()) return true;
  return holds();
}

// A CGXThread that runs a closure.
class CWorker {
 public:
  explicit CWorker(std::function<void()> body) : m_Body(std::move(body)) {
    EXPECT_TRUE(m_Thread.Start(
        [](void* self) -> unsigned {
          static_cast<CWorker*>(self)->m_Body();
          return 0;
        },
        this, 0, "worker"));
  }
  ~CWorker() { m_Thread.Join(); }
  CGXThread* operator->() { return &m_Thread; }

 private:
  std::function<void()> m_Body;
  CGXThread m_Thread;
};

// ---- The main-thread lock ----

TEST(MainLock, ServesInTheOrderOfAsking) {
  CMainLock lock;
  std::vector<int> order;
  ASSERT_TRUE(lock.Lock());
  std::vector<std::unique_ptr<CWorker>> workers;
  for (int i = 0; i < 5; ++i) {
    workers.push_back(std::make_unique<CWorker>([&lock, &order, i] {
      ASSERT_TRUE(lock.Lock());
      ASSERT_TRUE(lock.Lock());  // again: recursive
      order.push_back(i);
      lock.Unlock();
      EXPECT_TRUE(lock.HeldByCaller());
      lock.Unlock();
    }));
    ASSERT_TRUE(WaitUntil([&] { return lock.Waiting() == i + 1; }));
  }
  lock.Unlock();
  ASSERT_TRUE(lock.Lock());  // comes after all who wait
  order.push_back(99);
  lock.Unlock();
  workers.clear();
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 99}));
  EXPECT_FALSE(lock.Unlock());
}

TEST(MainLock, CancelledThreadLeavesTheQueue) {
  CMainLock lock;
  std::atomic<int> refused{0}, served{0};
  const auto body = [&] {
    if (!lock.Lock()) {
      ++refused;
      EXPECT_FALSE(lock.HeldByCaller());
      EXPECT_FALSE(lock.Lock()) << "at once from then on";
      return;
    }
    ++served;
    lock.Unlock();
  };
  ASSERT_TRUE(lock.Lock());
  CWorker first(body);
  ASSERT_TRUE(WaitUntil([&] { return lock.Waiting() == 1; }));
  CWorker second(body);
  ASSERT_TRUE(WaitUntil([&] { return lock.Waiting() == 2; }));
  const auto begin = steady_clock::now();
  first->Cancel();
  first->Join();
  EXPECT_LT(steady_clock::now() - begin, 500ms);
  EXPECT_EQ(refused, 1);
  EXPECT_EQ(lock.Waiting(), 1);
  lock.Unlock();
  second->Join();
  EXPECT_EQ(served, 1);
}

TEST(MainLock, CancellingAtTheMomentOfHandingOverLosesNothing) {
  CMainLock lock;
  int guarded = 0;  // plain: ThreadSanitizer sees it when two hold the lock
  std::mt19937 random(7);
  for (int round = 0; round < 60; ++round) {
    std::vector<std::unique_ptr<CWorker>> workers;
    for (int i = 0; i < 4; ++i)
      workers.push_back(std::make_unique<CWorker>([&] {
        while (lock.Lock()) {
          ++guarded;
          lock.Unlock();
        }
      }));
    for (auto& worker : workers) {
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
      (*worker)->Cancel();
    }
    workers.clear();
    ASSERT_EQ(lock.Waiting(), 0);
    ASSERT_TRUE(lock.Lock());
    ++guarded;
    lock.Unlock();
  }
}

// ---- Components ----

struct Log {
  std::atomic<int> Idle{0}, FileIdle{0}, Deleted{0}, BusyWhenDeleted{0};
};

// A component with everything that may be in flight when it is removed: idle, file thread, its own thread.
class CBusyComponent : public CVideoSystem, public CGeneralCommThread {
 public:
  CBusyComponent(Log* log, std::function<void(CBusyComponent*)> run = {})
      : CVideoSystem(nullptr), m_pLog(log), m_Run(std::move(run)) {}
  ~CBusyComponent() override {
    if (m_nBusy != 0 || ThreadRunning()) ++m_pLog->BusyWhenDeleted;
    ++m_pLog->Deleted;
    StopThread();
  }

  void OnComponentIdle() override { Busy(m_pLog->Idle); }
  void FileThreadOnIdle() override { Busy(m_pLog->FileIdle); }
  bool IsSameConfig(CDeviceConfig*) override {
    std::atomic<int> asked{0};
    Busy(asked);
    return false;
  }
  int Run() override {
    if (m_Run) m_Run(this);
    return 0;
  }

 private:
  void Busy(std::atomic<int>& counter) {
    ++m_nBusy;
    std::this_thread::sleep_for(200us);
    ++counter;
    --m_nBusy;
  }
  Log* const m_pLog;
  std::function<void(CBusyComponent*)> m_Run;
  std::atomic<int> m_nBusy{0};
};

class System : public testing::Test {
 protected:
  void TearDown() override {
    m_System.StopFileThread();
    m_System.RemoveAllComponents();
  }
  CBusyComponent* Add(std::function<void(CBusyComponent*)> run = {}) {
    auto component = std::make_unique<CBusyComponent>(&m_Log, std::move(run));
    CBusyComponent* const added = component.get();
    m_System.AddComponent(std::move(component));
    return added;
  }
  CSystem& m_System = *CSystem::Instance();
  Log m_Log;
};

TEST_F(System, ListsAndIds) {
  CSystemComponentDef plain(7, "Plain", "", 0, 0);
  m_System.AddComponent(std::make_unique<CSystemComponent>(&plain));
  CBusyComponent* const video = Add();
  auto third = std::make_unique<CSystemComponent>(&plain);
  third->ID(video->ID());  // taken
  m_System.AddComponent(std::move(third));
  ASSERT_EQ(m_System.NComponents(), 3);
  EXPECT_EQ(m_System.Component(0)->Name(), "Plain");
  EXPECT_EQ(m_System.Component(0)->ComponentType(), 7);
  EXPECT_EQ(m_System.NVideo(), 1);
  EXPECT_EQ(m_System.VideoSystem(0), video);
  EXPECT_EQ(m_System.ComponentByID(video->ID()), video);
  EXPECT_NE(m_System.Component(2)->ID(), video->ID());
  for (int outside : {-1, 3}) EXPECT_EQ(m_System.Component(outside), nullptr);
  EXPECT_EQ(m_System.VideoSystem(1), nullptr);
  EXPECT_FALSE(m_System.RemoveComponent(12345));
}

TEST_F(System, PassGivesTheLockUpBetweenComponents) {
  static std::vector<std::string>* order;
  std::vector<std::string> seen;
  order = &seen;
  struct CIdler : CSystemComponent {
    explicit CIdler(std::string name, std::function<void()> idle)
        : CSystemComponent(nullptr), m_Name(std::move(name)), m_Idle(std::move(idle)) {}
    void OnComponentIdle() override {
      EXPECT_TRUE(CSystem::Instance()->HoldsMainThread());
      order->push_back(m_Name);
      m_Idle();
    }
    std::string m_Name;
    std::function<void()> m_Idle;
  };
  std::unique_ptr<CWorker> worker;
  std::atomic<bool> asking{false};
  m_System.AddComponent(std::make_unique<CIdler>("first", [&] {
    worker = std::make_unique<CWorker>([&] {
      asking = true;
      CMainThreadLock lock;
      order->push_back("worker");
    });
    ASSERT_TRUE(WaitUntil([&] { return asking.load(); }));
    std::this_thread::sleep_for(20ms);  // until it is in the queue; too short would only reorder the last two
  }));
  m_System.AddComponent(std::make_unique<CIdler>("second", [] {}));
  m_System.PostToMainThread([](void* text) { order->push_back(static_cast<const char*>(text)); },
                            const_cast<char*>("posted"));
  static char dropped[] = "dropped";
  m_System.PostToMainThread([](void* text) { order->push_back(static_cast<const char*>(text)); }, dropped);
  m_System.DropPosted(dropped);
  m_System.MainThreadPass();
  worker.reset();
  EXPECT_EQ(seen, (std::vector<std::string>{"posted", "first", "worker", "second"}));
}

TEST_F(System, RemovesWhileEverybodyUsesTheLists) {
  std::atomic<bool> stop{false};
  m_System.StartFileThread();
  std::thread main([&] {
    while (!stop) m_System.MainThreadPass();
  });
  std::thread finder([&] {
    CDeviceConfig record(1);
    while (!stop) {
      const CComponentListLock list;
      for (int i = 0; CVideoSystem* video = m_System.VideoSystem(i); ++i) video->IsSameConfig(&record);
    }
  });
  std::thread locker([&] {
    while (!stop) {
      const CMainThreadLock lock;
      for (int i = 0; CSystemComponent* component = m_System.Component(i); ++i)
        component->IsSameConfig(nullptr);
    }
  });
  constexpr int ROUNDS = 40;
  for (int round = 0; round < ROUNDS; ++round) {
    CBusyComponent* const component = Add([](CBusyComponent* self) {
      while (!self->StopFlag())
        if (const CMainThreadLock lock; lock) std::this_thread::sleep_for(50us);
    });
    const int id = component->ID(), idle = m_Log.Idle;
    component->StartThread("busy");
    EXPECT_TRUE(round % 4 != 0 || WaitUntil([&] { return m_Log.Idle > idle; }));
    EXPECT_TRUE(m_System.RemoveComponent(id));
    EXPECT_EQ(m_Log.Deleted, round + 1);
  }
  Add();
  EXPECT_TRUE(WaitUntil([&] { return m_Log.FileIdle > 0; }));
  stop = true;
  main.join();
  finder.join();
  locker.join();
  EXPECT_EQ(m_Log.BusyWhenDeleted, 0);
}

TEST_F(System, RemovesAThreadInTheMiddleOfAnyWait) {
  const std::function<void(CBusyComponent*)> waits[] = {
      [](CBusyComponent*) { Sleep(60000); },
      [](CBusyComponent*) { CGXSemaphore().WaitSignal(60000); },
      [](CBusyComponent*) {
        const CMainThreadLock lock;
        Sleep(60000);
      },
  };
  for (const auto& wait : waits) {
    std::atomic<bool> inside{false};
    CBusyComponent* const component = Add([&](CBusyComponent* self) {
      inside = true;
      wait(self);
    });
    component->StartThread("waiting");
    ASSERT_TRUE(WaitUntil([&] { return inside.load(); }));
    const auto begin = steady_clock::now();
    if (&wait == &waits[2]) component->RequestStop();  // it holds the main lock, which a removal needs first
    EXPECT_TRUE(m_System.RemoveComponent(component->ID()));
    EXPECT_LT(steady_clock::now() - begin, 2s);
  }
  EXPECT_EQ(m_Log.Deleted, 3);
  EXPECT_EQ(m_Log.BusyWhenDeleted, 0);
}

TEST_F(System, RefusesToRemoveWhereItWouldWaitForItself) {
  const int id = Add()->ID(), asserts = AssertCount();
  {
    const CMainThreadLock lock;
    EXPECT_FALSE(m_System.RemoveComponent(id));
  }
  {
    const CComponentListLock list;
    EXPECT_FALSE(m_System.RemoveComponent(id));
  }
  EXPECT_EQ(AssertCount(), asserts + 2);
  EXPECT_TRUE(m_System.RemoveComponent(id));
}

TEST_F(System, ComponentIsLeavingWhenItsThreadIsStopped) {
  std::atomic<bool> leaving{false}, started{false};
  CBusyComponent* const component = Add([&](CBusyComponent* self) {
    started = true;
    Sleep(60000);
    leaving = self->Leaving();
  });
  component->StartThread("leaving");
  ASSERT_TRUE(WaitUntil([&] { return started.load(); }));
  EXPECT_TRUE(m_System.RemoveComponent(component->ID()));
  EXPECT_TRUE(leaving);
}

TEST_F(System, SaveRequests) {
  m_System.TakeSaveRequest();
  m_System.NotifyConfigChanged();
  EXPECT_TRUE(m_System.TakeSaveRequest());
  EXPECT_FALSE(m_System.TakeSaveRequest());
  m_System.NotifyWrite();
  EXPECT_TRUE(m_System.TakeSaveRequest());
}

TEST(CommThread, StartsAgainAndNeverJoinsItself) {
  struct CCounted : CGeneralCommThread {
    ~CCounted() override { StopThread(); }
    int Run() override {
      if (++Runs == 1) SelfStart = StartThread("self");
      while (!StopFlag() && !CGXThread::CurrentCancelled()) Sleep(60000);
      ++Ends;
      return 0;
    }
    std::atomic<int> Runs{0}, Ends{0}, SelfStart{-1};
  } thread;
  EXPECT_FALSE(thread.ThreadRunning());
  for (int i = 1; i <= 3; ++i) {  // the second and third while it runs
    EXPECT_TRUE(thread.StartThread("counted"));
    EXPECT_TRUE(WaitUntil([&] { return thread.Runs == i; }));
    EXPECT_EQ(thread.Ends, i - 1);
  }
  EXPECT_EQ(thread.SelfStart, 0);
  {
    const CMainThreadLock lock;
    thread.StopThread();
  }
  EXPECT_FALSE(thread.ThreadRunning());
  EXPECT_TRUE(thread.StopFlag());
  EXPECT_EQ(thread.Ends, 3);
  EXPECT_TRUE(thread.StartThread("counted"));
  EXPECT_FALSE(thread.StopFlag());
}

// ---- Notices and traces: what is removed is not being called any more ----

struct CSlowSink : CNotifySink {
  void OnNotify(int, int) override {
    ++Calls;
    if (Hold) Go.WaitSignal(60000);
    if (Before) Before();
    ++Ended;
  }
  std::atomic<int> Calls{0}, Ended{0};
  bool Hold = false;
  CGXSemaphore Go;
  std::function<void()> Before;
};

TEST(SinkServer, RemovingWaitsForANoticeInFlight) {
  CSinkServer server;
  CSlowSink sink;
  sink.Hold = true;
  server.AddNotifySink(&sink);
  server.AddNotifySink(&sink);
  CWorker notifier([&] { server.NotifySinks(1, 2); });
  ASSERT_TRUE(WaitUntil([&] { return sink.Calls == 1; }));
  std::atomic<int> endedAtRemoval{-1};
  CWorker remover([&] {
    server.RemoveNotifySink(&sink);
    endedAtRemoval = sink.Ended.load();
  });
  EXPECT_FALSE(WaitUntil([&] { return endedAtRemoval != -1; }, 50ms));
  sink.Go.SetEvent();
  remover->Join();
  EXPECT_EQ(endedAtRemoval, 1);
  server.NotifySinks(1, 2);
  EXPECT_EQ(sink.Calls, 1);
}

TEST(SinkServer, ReceiverMayRemoveItself) {
  CSinkServer server;
  CSlowSink sinks[3];
  for (CSlowSink& sink : sinks) server.AddNotifySink(&sink);
  sinks[1].Before = [&] {
    server.RemoveNotifySink(&sinks[1]);
    server.RemoveNotifySink(&sinks[0]);
  };
  server.NotifySinks(1, 2);
  server.NotifySinks(1, 2);
  EXPECT_EQ(sinks[0].Calls, 1);
  EXPECT_EQ(sinks[1].Calls, 1);
  EXPECT_GE(sinks[2].Calls, 1);
}

struct CBook : CTraceListener {
  void OnTrace(CTraceProducer* producer, const CGXString& line) override {
    TraceWrap("from within");  // must not come back
    Lines.push_back({producer, line.Str()});
  }
  std::vector<std::pair<CTraceProducer*, std::string>> Lines;
};

TEST(Trace, OnWhileSomebodyListens) {
  CTraceServer& server = *CTraceServer::Instance();
  CTraceProducer before("before");
  EXPECT_FALSE(before.Trace());
  CBook book;
  server.AddListener(&book);
  server.AddListener(&book);
  CTraceProducer after("after");
  EXPECT_TRUE(before.Trace() && after.Trace());
  before.Trace("one");
  after.Trace("two");
  TraceWrap("three");
  AssertWrap("somewhere", 12);
  server.RemoveListener(&book);
  EXPECT_FALSE(before.Trace() || after.Trace());
  before.Trace("four");
  server.LoadStateFor(&before);
  EXPECT_FALSE(before.Trace());
  ASSERT_EQ(book.Lines.size(), 4u);
  EXPECT_EQ(book.Lines[0], std::pair(&before, std::string("one")));
  EXPECT_EQ(book.Lines[1], std::pair(&after, std::string("two")));
  EXPECT_EQ(book.Lines[2], std::pair(static_cast<CTraceProducer*>(nullptr), std::string("three")));
  EXPECT_NE(book.Lines[3].second.find("somewhere"), std::string::npos);
}

TEST(Trace, ListenersAndSpeakersComeAndGo) {
  std::atomic<bool> stop{false};
  std::vector<std::unique_ptr<CWorker>> speakers;
  for (int i = 0; i < 3; ++i)
    speakers.push_back(std::make_unique<CWorker>([&] {
      while (!stop) {
        CTraceProducer producer("speaker");
        for (int n = 0; n < 5; ++n) producer.Trace("line");
      }
    }));
  for (int i = 0; i < 100; ++i) {
    CBook book;
    CTraceServer::Instance()->AddListener(&book);
    std::this_thread::yield();
    CTraceServer::Instance()->RemoveListener(&book);
    for (const auto& [producer, line] : book.Lines) EXPECT_EQ(line, "line");
  }
  stop = true;
}

// ---- Events and commands ----

struct CDoor : CSystemComponent, CIntercomClient {
  CDoor() : CSystemComponent(nullptr) {}
  CIntercomClient* GetIcomClient(ICOM_CLIENT_CTX ctx) override {
    return ctx == ICOM_CLIENT_SELF ? this : nullptr;
  }
  int InitiateCall(int button) override { return button == 0 ? ++Placed : 0; }
  int CancelCall(int button) override { return button == 0 ? ++Cancelled : 0; }
  int Placed = 0, Cancelled = 0;
};

TEST_F(System, EventsAndCommands) {
  CEventServer& events = *CEventServer::Instance();
  std::vector<int> seen;
  events.RegisterEvent(1, EVENT_MOTION, 5);
  EXPECT_EQ(events.DispatchEvents(), 1);  // nobody there: dropped
  events.Receiver([&](const GXT_EVENT& event) {
    seen.push_back(event.Data);
    if (event.Data == 6) events.RegisterEvent(1, EVENT_MOTION, 8);  // for the next time
  });
  for (int data : {6, 7}) events.RegisterEvent(1, EVENT_MOTION, data);
  EXPECT_EQ(events.DispatchEvents(), 2);
  EXPECT_EQ(events.DispatchEvents(), 1);
  EXPECT_EQ(seen, (std::vector<int>{6, 7, 8}));
  for (size_t i = 0; i < CEventServer::MOST_EVENTS + 5; ++i) events.RegisterEvent(1, EVENT_MOTION, 0);
  EXPECT_EQ(events.DispatchEvents(), static_cast<int>(CEventServer::MOST_EVENTS));
  events.Receiver({});

  auto owned = std::make_unique<CDoor>();
  CDoor& door = *owned;
  m_System.AddComponent(std::move(owned));
  const int id = door.ID();
  EXPECT_FALSE(events.ExecuteCommand(id, COMMAND_PLACE_CALL));
  for (int twice = 0; twice < 2; ++twice) events.CheckCommand(id, COMMAND_PLACE_CALL, 29, 1);
  events.CheckCommand(id, COMMAND_CANCEL_CALL, 29, 1);
  EXPECT_TRUE(events.ExecuteCommand(id, COMMAND_PLACE_CALL));
  EXPECT_TRUE(events.ExecuteCommand(id, COMMAND_CANCEL_CALL));
  EXPECT_EQ(door.Placed, 1);
  EXPECT_EQ(door.Cancelled, 1);

  CIntercomServer& intercom = *CIntercomServer::Instance();
  for (int twice = 0; twice < 2; ++twice) intercom.RegisterClient(&door);
  EXPECT_EQ(intercom.Clients(), std::vector<CIntercomClient*>{&door});
  EXPECT_TRUE(m_System.RemoveComponent(id));
  EXPECT_FALSE(events.HasCommand(id, COMMAND_PLACE_CALL));
  EXPECT_TRUE(intercom.Clients().empty());
  intercom.RemoveClient(&door);  // unknown: ignored
}

}  // namespace
