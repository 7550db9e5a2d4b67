// The host's event, its threads, and that every wait ends when its thread is cancelled.
#include "host/base/gxworker.h"
#include "host/net/http.h"
#include "host/net/socket.h"
#include "tests/support/eventually.h"
#include "tests/support/scripted_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr unsigned LONG_MS = 60000;
// Far below that, far above what a busy machine needs.
constexpr double PROMPT_SECONDS = 30;

unsigned Call(void* body) {
  (*static_cast<std::function<void()>*>(body))();
  return 0;
}

// A socket that listens on a free port of the loopback interface.
int Listen(int backlog) {
  const int fd = BoundSocket(SOCK_STREAM, 0);
  listen(fd, backlog);
  return fd;
}

TEST(Semaphore, IsLatchedResetsItselfAndWakesOne) {
  CGXSemaphore event(0), set(1);
  EXPECT_TRUE(set.WaitSignal(0));
  for (int twice = 0; twice < 2; ++twice) event.SetEvent();
  EXPECT_TRUE(event.WaitSignal(0));
  EXPECT_FALSE(event.WaitSignal(20));
  std::atomic<int> woken{0};
  std::function<void()> body = [&] {
    if (event.WaitSignal(LONG_MS)) ++woken;
  };
  CGXThread threads[3];
  for (CGXThread& thread : threads) ASSERT_EQ(thread.Start(&Call, &body, 0, "waiter"), 1);
  event.SetEvent();
  ASSERT_TRUE(Eventually(20, [&] { return woken > 0; }));
  for (CGXThread& thread : threads) thread.Cancel();
  for (CGXThread& thread : threads) thread.Join();
  EXPECT_EQ(woken, 1);
}

TEST(Thread, RunsUnderItsNameAndEnds) {
  CGXThread thread;
  char name[32] = "";
  CGXSemaphore go;
  bool joinedItself = true;
  std::function<void()> body = [&] {
    pthread_getname_np(pthread_self(), name, sizeof name);
    joinedItself = thread.WaitComplete(LONG_MS);  // refused, as the next two
    thread.Join();
    thread.Reset();
    go.WaitSignal(LONG_MS);
  };
  EXPECT_FALSE(thread.IsRunning());
  EXPECT_TRUE(thread.WaitComplete(0));
  const Clock::time_point start = Clock::now();
  ASSERT_EQ(thread.Start(&Call, &body, 256000, "ONVIF Event Proc Thread"), 1);
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_EQ(thread.Start(&Call, &body, 0, "second"), 0);
  EXPECT_FALSE(thread.WaitComplete(10));
  std::vector<std::thread> joiners;
  for (int i = 0; i < 4; ++i)
    joiners.emplace_back([&thread, i] { i % 2 == 0 ? thread.Join() : void(thread.WaitComplete(LONG_MS)); });
  go.SetEvent();
  for (std::thread& joiner : joiners) joiner.join();
  EXPECT_LT(SecondsSince(start), PROMPT_SECONDS);
  EXPECT_FALSE(thread.IsRunning() || joinedItself);
  EXPECT_STREQ(name, "ONVIF Event Pro");
}

// Work that comes at the moment when the thread decides to end is done all the same, by one thread at a time,
// and a thread that is not to be had leaves it to the next who claims.
TEST(Worker, LeavesNothingLyingAndNeverWorksTwice) {
  struct CJobs {
    CGXMutex Lock;
    int Waiting GUARDED_BY(Lock) = 0;
    CGXWorker Worker;
    std::atomic<int> Done{0}, AtWork{0}, Doubled{0};

    static unsigned Work(void* self) {
      auto& jobs = *static_cast<CJobs*>(self);
      if (++jobs.AtWork > 1) ++jobs.Doubled;
      while (jobs.DoOne()) {
      }
      Sleep(1);  // on its way out, while the next one is claimed
      return 0;
    }
    bool DoOne() {
      const CGXLock hold(Lock);
      if (Waiting == 0) {
        --AtWork;
        Worker.Release(Lock);
        return false;
      }
      --Waiting;
      ++Done;
      return true;
    }
    bool Bring() {
      {
        const CGXLock hold(Lock);
        ++Waiting;
        if (!Worker.Claim(Lock)) return true;
      }
      return Worker.Start(Work, this, 0, "Worker") != 0;
    }
  } jobs;
  constexpr int BRINGERS = 4, JOBS_OF_EACH = 100;
  jobs.Worker.Cancel();
  EXPECT_FALSE(jobs.Bring());
  jobs.Worker.Reset();
  std::vector<std::thread> bringers;
  for (int i = 0; i < BRINGERS; ++i)
    bringers.emplace_back([&jobs] {
      for (int job = 0; job < JOBS_OF_EACH; ++job) {
        EXPECT_TRUE(jobs.Bring());
        Sleep(static_cast<unsigned>(job % 2));  // so that it ends now and then
      }
    });
  for (std::thread& bringer : bringers) bringer.join();
  EXPECT_TRUE(Eventually(PROMPT_SECONDS, [&jobs] { return jobs.Done == BRINGERS * JOBS_OF_EACH + 1; }));
  jobs.Worker.Join();
  EXPECT_EQ(jobs.Doubled, 0);
}

TEST(Thread, NamesThatAreTooLongKeepWhatTellsThemApart) {
  static constexpr const char* CASES[][2] = {{"Gate:Proc0", "Gate:Proc0"},
                                             {"Acme SpeedDome 20:Proc0", "Acme Spee:Proc0"},
                                             {"Acme SpeedDome 20:ProcH264", "Acme S:ProcH264"},
                                             {"Gate:all that it is for", "Gate:all that i"},
                                             {"123456789012345", "123456789012345"}};
  for (const auto& [given, shown] : CASES) {
    char name[32] = "";
    std::function<void()> body = [&] { pthread_getname_np(pthread_self(), name, sizeof name); };
    CGXThread thread;
    ASSERT_EQ(thread.Start(&Call, &body, 0, given), 1);
    thread.Join();
    EXPECT_STREQ(name, shown);
  }
}

TEST(Thread, StartsAgainAfterItsEndAndAfterReset) {
  std::atomic<int> runs{0};
  std::function<void()> body = [&] { ++runs; };
  {
    CGXThread thread;
    for (int i = 1; i <= 200; ++i) {
      while (thread.Start(&Call, &body, 0, nullptr) == 0) ASSERT_TRUE(thread.WaitComplete(LONG_MS));
      if (i % 2 == 0) thread.Join();
    }
    EXPECT_TRUE(thread.WaitComplete(LONG_MS));
    EXPECT_EQ(runs, 200);
    thread.Cancel();
    EXPECT_EQ(thread.Start(&Call, &body, 0, nullptr), 0);
    thread.Reset();
    body = [&] {
      Sleep(1);
      runs += CGXThread::CurrentCancelled() ? 100 : 1;
      Sleep(LONG_MS);
      runs += CGXThread::CurrentCancelled() ? 10 : 1000;
    };
    EXPECT_EQ(thread.Start(&Call, &body, 0, nullptr), 1);
    ASSERT_TRUE(Eventually(20, [&] { return runs > 200; }));
  }  // destroying it cancels and joins
  EXPECT_EQ(runs, 211);
}

TEST(Thread, MayBeDestroyedByItsOwnEntry) {
  struct Shared {  // the thread outlives the test by a moment, and so must this
    CGXThread* Thread = new CGXThread;
    CGXSemaphore Done;
  };
  const auto shared = std::make_shared<Shared>();
  const CGXThread::Entry entry = [](void* argument) {
    const std::unique_ptr<std::shared_ptr<Shared>> own(static_cast<std::shared_ptr<Shared>*>(argument));
    delete (*own)->Thread;
    Sleep(LONG_MS);  // cancelled by that
    (*own)->Done.SetEvent();
    return 0u;
  };
  ASSERT_EQ(shared->Thread->Start(entry, new std::shared_ptr<Shared>(shared), 0, "last"), 1);
  EXPECT_TRUE(shared->Done.WaitSignal(LONG_MS / 2));
}

// What the waits wait for in vain: a peer that is silent, one that does not read, one that does not accept.
class CancelledWait : public testing::Test {
 protected:
  CancelledWait() : m_iSilent(Listen(8)), m_iFull(Listen(0)) {
    socketpair(AF_UNIX, SOCK_STREAM, 0, m_iPair);
    // Beyond the backlog, a connection attempt gets no answer.
    const sockaddr_in full = Loopback(BoundPort(m_iFull));
    for (int& filler : m_iFillers) {
      filler = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
      connect(filler, reinterpret_cast<const sockaddr*>(&full), sizeof full);
    }
  }
  ~CancelledWait() override {
    for (const int fd : {m_iSilent, m_iFull, m_iPair[0], m_iPair[1]}) CloseSocket(fd);
    for (const int fd : m_iFillers) CloseSocket(fd);
  }

  static bool Exchange(int server) {
    const std::unique_ptr<CHTMLPage> page(DoHTTPExchange("127.0.0.1:" + std::to_string(BoundPort(server)),
                                                         "GET / HTTP/1.1\r\n\r\n", nullptr, 0, 80, LONG_MS));
    return page != nullptr;
  }
  bool Send() const {
    const std::string much(1 << 20, 'x');
    return SendSocket(m_iPair[0], much.data(), 1 << 20, LONG_MS) == 1 << 20;
  }

  CGXSemaphore m_Event;
  const int m_iSilent, m_iFull;
  int m_iPair[2] = {}, m_iFillers[4] = {};
};

// Begun before the thread is cancelled, and refused afterwards, also when what it waits for is there.
TEST_F(CancelledWait, EndsAtOnce) {
  const std::pair<const char*, std::function<bool()>> waits[] = {
      {"Sleep", [] { return Sleep(LONG_MS), false; }},
      {"WaitSignal", [this] { return m_Event.WaitSignal(LONG_MS); }},
      {"read", [this] { return WaitSocketReadState(m_iPair[0], LONG_MS); }},
      {"send", [this] { return Send(); }},
      {"exchange, connecting", [this] { return Exchange(m_iFull); }},
      {"exchange, receiving", [this] { return Exchange(m_iSilent); }},
  };
  for (const auto& [name, wait] : waits) {
    SCOPED_TRACE(name);
    std::atomic<bool> begun{false}, ended{false}, succeeded{false}, hold{true};
    std::function<void()> body = [&, &wait = wait] {
      begun = true;
      succeeded = wait();
      ended = true;
      while (hold) std::this_thread::yield();
      succeeded = succeeded || wait();
    };
    CGXThread thread;
    ASSERT_EQ(thread.Start(&Call, &body, 0, "waiting"), 1);
    ASSERT_TRUE(Eventually(20, [&] { return begun.load(); }));
    EXPECT_FALSE(thread.WaitComplete(30));  // deep in the wait by now
    const Clock::time_point start = Clock::now();
    thread.Cancel();
    EXPECT_TRUE(Eventually(20, [&] { return ended.load(); }));
    m_Event.SetEvent();
    send(m_iPair[1], "x", 1, 0);
    hold = false;
    thread.Join();
    EXPECT_LT(SecondsSince(start), PROMPT_SECONDS);
    EXPECT_FALSE(succeeded);
    EXPECT_TRUE(m_Event.WaitSignal(0));  // the signal is left for others
    char byte;
    recv(m_iPair[0], &byte, 1, MSG_DONTWAIT);
  }
}

// Writing to a peer that is gone is an error and not the end of the process. The sockets' numbers are beyond
// those that select() can take.
TEST(Socket, PeersGoAway) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  const int high = fcntl(pair[0], F_DUPFD, 1100);
  ASSERT_GE(high, 1100);
  CloseSocket(pair[0]);
  EXPECT_TRUE(WaitSocketWriteState(high, 0));
  EXPECT_FALSE(WaitSocketReadState(high, 20));
  CloseSocket(pair[1]);
  EXPECT_TRUE(WaitSocketReadState(high, LONG_MS));  // at its end
  EXPECT_EQ(SendSocket(high, "x", 1, 100), -1);
  CloseSocket(high);
  EXPECT_FALSE(WaitSocketReadState(-1, LONG_MS));
  sockaddr_in nobody = Loopback(9);
  const int refused = socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(ConnectSocket(refused, &nobody, LONG_MS), -1);
  EXPECT_EQ(NORVA_GetLastError(), ECONNREFUSED);
  CloseSocket(refused);
}

}  // namespace
