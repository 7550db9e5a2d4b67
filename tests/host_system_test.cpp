// The host's threads and lists: the main-thread lock, components that come and go, notices, traces, events.
#include "host/base/gxassert.h"
#include "host/base/trace.h"
#include "host/net/socket.h"
#include "host/system/comm_thread.h"
#include "host/system/event_server.h"
#include "host/system/main_lock.h"
#include "host/system/sink_server.h"
#include "host/system/system.h"
#include "host/video/video.h"
#include "tests/support/eventually.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <random>
#include <thread>

namespace {

using namespace std::chrono_literals;

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

TEST(MainLock, ServesInTheOrderOfAskingAndNotWhoWasCancelled) {
  CMainLock lock;
  std::vector<int> order;
  ASSERT_TRUE(lock.Lock());
  std::vector<std::unique_ptr<CWorker>> workers;
  for (int i = 0; i < 5; ++i) {
    workers.push_back(std::make_unique<CWorker>([&lock, &order, i] {
      if (!lock.Lock()) {
        EXPECT_EQ(i, 1);
        EXPECT_TRUE(!lock.HeldByCaller() && !lock.Lock()) << "at once from then on";
        return;
      }
      ASSERT_TRUE(lock.Lock());  // again: recursive
      order.push_back(i);
      lock.Unlock();
      EXPECT_TRUE(lock.HeldByCaller());
      lock.Unlock();
    }));
    ASSERT_TRUE(Eventually(20, [&] { return lock.Waiting() == i + 1; }));
  }
  (*workers[1])->Cancel();
  (*workers[1])->Join();  // while the lock is held
  EXPECT_EQ(lock.Waiting(), 4);
  lock.Unlock();
  ASSERT_TRUE(lock.Lock());  // comes after all who wait
  order.push_back(99);
  lock.Unlock();
  workers.clear();
  EXPECT_EQ(order, (std::vector<int>{0, 2, 3, 4, 99}));
  EXPECT_FALSE(lock.Unlock());
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

// With everything that may be in flight when a component is removed: idle, file thread, its own thread.
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

TEST_F(System, PassGivesTheLockUpBetweenComponents) {
  struct CIdler : CSystemComponent {
    explicit CIdler(std::function<void()> idle) : CSystemComponent(nullptr), m_Idle(std::move(idle)) {}
    void OnComponentIdle() override {
      EXPECT_TRUE(CSystem::Instance()->HoldsMainThread());
      m_Idle();
    }
    std::function<void()> m_Idle;
  };
  static std::string order;  // written under the lock
  order.clear();
  static char posted[] = "posted ", dropped[] = "dropped ";
  const auto note = [](void* text) { order += static_cast<const char*>(text); };
  for (char* const text : {posted, dropped}) m_System.PostToMainThread(note, text);
  m_System.DropPosted(dropped);
  std::unique_ptr<CWorker> worker;
  const auto add = [this](const std::function<void()>& idle) {
    m_System.AddComponent(std::make_unique<CIdler>(idle));
  };
  add([&] {
    order += "first ";
    worker = std::make_unique<CWorker>([] {
      const CMainThreadLock lock;
      order += "worker ";
    });
  });
  // The pass goes on until the worker has come to ask for the lock.
  for (int i = 1; i <= 200; ++i)
    add([i] {
      if (order.find("worker") == order.npos) std::this_thread::sleep_for(i * 1ms);
    });
  std::string seen;
  add([&seen] { seen = order; });
  m_System.MainThreadPass();
  EXPECT_EQ(seen, "posted first worker ");
}

TEST_F(System, RemovesAThreadInTheMiddleOfItsWait) {
  std::atomic<bool> inside{false}, leaving{false};
  CBusyComponent* const waiting = Add([&](CBusyComponent* self) {
    inside = true;
    Sleep(60000);
    leaving = self->Leaving();
  });
  waiting->StartThread("waiting");
  ASSERT_TRUE(Eventually(20, [&] { return inside.load(); }));
  const auto begin = Clock::now();
  EXPECT_TRUE(m_System.RemoveComponent(waiting->ID()));
  EXPECT_LT(SecondsSince(begin), 30);
  EXPECT_TRUE(leaving);
  EXPECT_EQ(m_Log.Deleted, 1);
  // Where it would wait for itself it refuses.
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
  EXPECT_FALSE(m_System.RemoveComponent(12345));
  EXPECT_TRUE(m_System.RemoveComponent(id));
  EXPECT_EQ(m_Log.BusyWhenDeleted, 0);
}

TEST_F(System, RemovesWhileEverybodyUsesTheLists) {
  std::atomic<bool> stop{false};
  m_System.StartFileThread();
  const auto ask = [this] {
    for (int i = 0; CVideoSystem* video = m_System.VideoSystem(i); ++i) video->IsSameConfig(nullptr);
  };
  std::vector<std::thread> users;
  const auto use = [&](const std::function<void()>& once) {
    users.emplace_back([&stop, once] {
      while (!stop) once();
    });
  };
  use([this] { m_System.MainThreadPass(); });
  use([&] {
    const CComponentListLock list;
    ask();
  });
  use([&] {
    const CMainThreadLock lock;
    ask();
  });
  constexpr int ROUNDS = 40;
  for (int round = 0; round < ROUNDS; ++round) {
    CBusyComponent* const component = Add([](CBusyComponent* self) {
      while (!self->StopFlag())
        if (const CMainThreadLock lock; lock) std::this_thread::sleep_for(50us);
    });
    const int id = component->ID(), idle = m_Log.Idle;
    component->StartThread("busy");
    EXPECT_TRUE(round % 4 != 0 || Eventually(20, [&] { return m_Log.Idle > idle; }));
    EXPECT_TRUE(m_System.RemoveComponent(id));
    EXPECT_EQ(m_Log.Deleted, round + 1);
  }
  Add();
  EXPECT_TRUE(Eventually(20, [&] { return m_Log.FileIdle > 0; }));
  stop = true;
  for (std::thread& user : users) user.join();
  EXPECT_EQ(m_Log.BusyWhenDeleted, 0);
}

// ---- Notices and traces: what is removed is not being called any more ----

TEST(SinkServer, WhatIsRemovedIsNotBeingCalledAnyMore) {
  struct CSink : CNotifySink {
    void OnNotify(int, int) override {
      ++Calls;
      if (Then) Then();
      ++Ended;
    }
    std::atomic<int> Calls{0}, Ended{0};
    std::function<void()> Then;
  };
  CSinkServer server;
  CSink sinks[2];
  for (CSink& sink : sinks) server.AddNotifySink(&sink);
  server.AddNotifySink(&sinks[0]);                              // again: once is enough
  sinks[1].Then = [&] { server.RemoveNotifySink(&sinks[1]); };  // itself, from within
  for (int twice = 0; twice < 2; ++twice) server.NotifySinks(1, 2);
  EXPECT_EQ(sinks[0].Calls, 2);
  EXPECT_EQ(sinks[1].Calls, 1);

  CGXSemaphore go;
  sinks[0].Then = [&] { go.WaitSignal(60000); };
  CWorker notifier([&] { server.NotifySinks(1, 2); });
  ASSERT_TRUE(Eventually(20, [&] { return sinks[0].Calls == 3; }));
  std::atomic<int> endedAtRemoval{-1};
  CWorker remover([&] {
    server.RemoveNotifySink(&sinks[0]);
    endedAtRemoval = sinks[0].Ended.load();
  });
  EXPECT_FALSE(Eventually(0.05, [&] { return endedAtRemoval != -1; }));
  go.SetEvent();
  remover->Join();
  EXPECT_EQ(endedAtRemoval, 3);
}

struct CBook : CTraceListener {
  void OnTrace(CTraceProducer* producer, const CGXString& line) override {
    TraceWrap("from within");  // must not come back
    Lines.push_back({producer, line.Str()});
  }
  std::vector<std::pair<CTraceProducer*, std::string>> Lines;
};

TEST(Trace, ReachesWhoListensWhileTheyComeAndGo) {
  std::atomic<bool> stop{false};
  CTraceProducer before("before");
  EXPECT_FALSE(before.Trace());
  std::vector<std::unique_ptr<CWorker>> speakers;
  for (int i = 0; i < 3; ++i)
    speakers.push_back(std::make_unique<CWorker>([&] {
      while (!stop) CTraceProducer("speaker").Trace("line");
    }));
  for (int i = 0; i < 100; ++i) {
    CBook book;
    for (int twice = 0; twice < 2; ++twice) CTraceServer::Instance()->AddListener(&book);
    EXPECT_TRUE(before.Trace());
    std::this_thread::yield();
    before.Trace("mine");
    CTraceServer::Instance()->RemoveListener(&book);
    EXPECT_FALSE(before.Trace());
    before.Trace("too late");
    EXPECT_EQ(std::count(book.Lines.begin(), book.Lines.end(), std::pair(&before, std::string("mine"))), 1);
    for (const auto& [producer, line] : book.Lines) EXPECT_EQ(line, producer == &before ? "mine" : "line");
  }
  stop = true;
}

// ---- Events and commands ----

TEST_F(System, EventsWaitForTheMainThread) {
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
}

}  // namespace
