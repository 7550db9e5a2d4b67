// Loaded before the C library into a controller under soak: steps its clock and refuses its threads, as the
// words of a shared file say, without touching the machine's.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

struct CWords {
  std::atomic<int64_t> ClockMs;        // added to the wall clock
  std::atomic<int64_t> RefuseThreads;  // how many more are refused
};

CWords g_none;  // zero before any constructor runs

CWords* Map() {
  const char* path = std::getenv("SOAK_FAULTS");
  const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
  if (file < 0) return &g_none;
  void* const memory = mmap(nullptr, sizeof(CWords), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  return memory == MAP_FAILED ? &g_none : static_cast<CWords*>(memory);
}

CWords& Words() {
  static CWords* const words = Map();
  return *words;
}

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* now) {
  static auto* const next = Next<int(clockid_t, timespec*)>("clock_gettime");
  const int result = next(clock, now);
  if (result == 0 && clock == CLOCK_REALTIME) {
    const int64_t milliseconds = Words().ClockMs;
    const int64_t ns = now->tv_nsec + milliseconds % 1000 * 1'000'000;
    now->tv_sec += milliseconds / 1000 + (ns < 0 ? -1 : ns / 1'000'000'000);
    now->tv_nsec = (ns + 1'000'000'000) % 1'000'000'000;
  }
  return result;
}

extern "C" int gettimeofday(timeval* now, void*) noexcept {
  timespec precise{};
  const int result = clock_gettime(CLOCK_REALTIME, &precise);
  now->tv_sec = precise.tv_sec;
  now->tv_usec = precise.tv_nsec / 1000;
  return result;
}

extern "C" time_t time(time_t* out) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (out != nullptr) *out = now.tv_sec;
  return now.tv_sec;
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                              void* argument) noexcept {
  static auto* const next =
      Next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
  if (Words().RefuseThreads > 0 && Words().RefuseThreads.fetch_sub(1) > 0) return EAGAIN;
  return next(thread, attributes, run, argument);
}
