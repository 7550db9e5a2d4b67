#include "util/gxtimer.h"

#include <sys/time.h>

unsigned GetTickCount() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<unsigned>(static_cast<unsigned long long>(now.tv_sec) * 1000ULL +
                               static_cast<unsigned long long>(now.tv_usec) / 1000ULL);
}
