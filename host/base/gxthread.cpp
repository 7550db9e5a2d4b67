#include "host/base/gxthread.h"

#include "host/base/gxwait.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

constexpr size_t DEFAULT_STACK_BYTES = 256 * 1024;
// What instrumented code needs on top: redzones and shadow frames multiply every frame.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define GX_SANITIZED 1
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define GX_SANITIZED 1
#endif
#if defined(GX_SANITIZED)
constexpr size_t MINIMUM_STACK_BYTES = 4 * 1024 * 1024;
#else
constexpr size_t MINIMUM_STACK_BYTES = 64 * 1024;
#endif
constexpr size_t STACK_GRANULARITY = 64 * 1024;  // a multiple of every page size
constexpr size_t THREAD_NAME_BYTES = 16;         // with its terminator, as the kernel keeps it

void Signal(int event) {
  const uint64_t one = 1;
  // Fails only when the counter is full, and then the event is set anyway.
  [[maybe_unused]] const ssize_t written = write(event, &one, sizeof one);
}

// A long name loses the end of its first part: what tells the threads of one owner apart ("Gate:Proc0") stays.
void SetName(char (&to)[THREAD_NAME_BYTES], std::string_view name) {
  constexpr size_t ROOM = THREAD_NAME_BYTES - 1;
  const std::string_view role = name.substr(std::min(name.rfind(':'), name.size()));
  std::string shown(name.substr(0, ROOM));
  if (name.size() > ROOM && role.size() < ROOM) shown.replace(ROOM - role.size(), role.size(), role);
  to[shown.copy(to, ROOM)] = '\0';
}

bool TakeSignal(int event) {
  uint64_t count = 0;
  return read(event, &count, sizeof count) == sizeof count;
}

}  // namespace

CGXSemaphore::CGXSemaphore(int count) : m_iEvent(eventfd(count > 0 ? 1 : 0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

CGXSemaphore::~CGXSemaphore() {
  if (m_iEvent != -1) close(m_iEvent);
}

void CGXSemaphore::SetEvent() {
  Signal(m_iEvent);
}

bool CGXSemaphore::WaitSignal(unsigned milliseconds) {
  const CGXDeadline deadline(milliseconds);
  if (m_iEvent == -1) {  // out of descriptors: as if nobody signalled, rather than a loop without pause
    GXPause(deadline);
    return false;
  }
  // Several may wait: who finds the signal taken waits on.
  while (GXPoll(m_iEvent, GXT_POLL::Read, deadline))
    if (TakeSignal(m_iEvent)) return true;
  return false;
}

struct CGXThread::State : std::enable_shared_from_this<CGXThread::State> {
  CGXMutex Lock;
  CGXCondition Ended;
  bool Running GUARDED_BY(Lock) = false;   // the entry has not returned yet
  bool Joinable GUARDED_BY(Lock) = false;  // Thread is to be joined
  pthread_t Thread GUARDED_BY(Lock){};
  std::atomic<bool> Cancelled{false};
  const int CancelEvent = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);

  // Of one run; set before the thread starts.
  Entry Body = nullptr;
  void* Argument = nullptr;
  char Name[THREAD_NAME_BYTES] = {};
  std::shared_ptr<State> Self;  // what the starting thread takes over

  State() = default;
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() {
    if (CancelEvent != -1) close(CancelEvent);
  }

  static thread_local State* t_pCurrent;
  bool IsCurrent() const { return t_pCurrent == this; }

  int Create(size_t stackBytes) REQUIRES(Lock);
  void Reap() REQUIRES(Lock);      // not running
  void AwaitEnd() REQUIRES(Lock);  // then reaped
  static void* Run(void* state);
};

thread_local CGXThread::State* CGXThread::State::t_pCurrent = nullptr;

void* CGXThread::State::Run(void* state) {
  const std::shared_ptr<State> self = std::move(static_cast<State*>(state)->Self);
  t_pCurrent = self.get();
  if (self->Name[0] != '\0') pthread_setname_np(pthread_self(), self->Name);
  self->Body(self->Argument);
  t_pCurrent = nullptr;
  const CGXLock hold(self->Lock);
  self->Running = false;
  self->Ended.NotifyAll();
  return nullptr;
}

int CGXThread::State::Create(size_t stackBytes) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return 0;
  Self = shared_from_this();
  const bool created = pthread_attr_setstacksize(&attributes, stackBytes) == 0 &&
                       pthread_create(&Thread, &attributes, &State::Run, this) == 0;
  pthread_attr_destroy(&attributes);
  if (!created) Self.reset();
  Running = Joinable = created;
  return created ? 1 : 0;
}

void CGXThread::State::Reap() {
  if (!Joinable) return;
  pthread_join(Thread, nullptr);
  Joinable = false;
}

void CGXThread::State::AwaitEnd() {
  while (Running) Ended.Wait(Lock);
  Reap();
}

CGXThread::CGXThread() : m_pState(std::make_shared<State>()) {}

CGXThread::~CGXThread() {
  Cancel();
  if (!m_pState->IsCurrent()) {
    Join();
    return;
  }
  // Destroyed by its own entry: the thread keeps its state until it ends.
  const CGXLock hold(m_pState->Lock);
  pthread_detach(m_pState->Thread);
  m_pState->Joinable = false;
}

int CGXThread::Start(Entry entry, void* argument, unsigned stackSize, const char* name) {
  State& state = *m_pState;
  const CGXLock hold(state.Lock);
  if (entry == nullptr || state.Running || state.Cancelled || state.CancelEvent == -1) return 0;
  state.Reap();
  state.Body = entry;
  state.Argument = argument;
  SetName(state.Name, name != nullptr ? name : "");
  const size_t wanted = std::max(stackSize != 0 ? size_t{stackSize} : DEFAULT_STACK_BYTES, MINIMUM_STACK_BYTES);
  return state.Create((wanted + STACK_GRANULARITY - 1) / STACK_GRANULARITY * STACK_GRANULARITY);
}

bool CGXThread::IsRunning() const {
  const CGXLock hold(m_pState->Lock);
  return m_pState->Running;
}

bool CGXThread::WaitComplete(unsigned milliseconds) {
  State& state = *m_pState;
  if (state.IsCurrent()) return false;
  const CGXLock hold(state.Lock);
  const CGXDeadline deadline(milliseconds);
  while (state.Running)
    if (!state.Ended.WaitUntil(state.Lock, deadline)) return false;
  state.Reap();
  return true;
}

void CGXThread::Cancel() {
  const CGXLock hold(m_pState->Lock);  // flag and signal as one, towards Reset
  m_pState->Cancelled = true;
  Signal(m_pState->CancelEvent);
}

bool CGXThread::IsCancelled() const {
  return m_pState->Cancelled;
}

void CGXThread::Join() {
  State& state = *m_pState;
  if (state.IsCurrent()) return;
  const CGXLock hold(state.Lock);
  state.AwaitEnd();
}

void CGXThread::Reset() {
  State& state = *m_pState;
  if (state.IsCurrent()) return;
  const CGXLock hold(state.Lock);
  state.AwaitEnd();
  TakeSignal(state.CancelEvent);
  state.Cancelled = false;
}

bool CGXThread::CurrentCancelled() {
  return State::t_pCurrent != nullptr && State::t_pCurrent->Cancelled;
}

int CGXThread::CurrentCancelDescriptor() {
  return State::t_pCurrent != nullptr ? State::t_pCurrent->CancelEvent : -1;
}
