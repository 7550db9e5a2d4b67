#include "controller/core/stop_signal.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace {

int g_iStop = -1;  // eventfd, never read: once readable it stays so

void OnStop(int) {
  RequestStop();
}

}  // namespace

void InstallStopSignals() {
  g_iStop = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  struct sigaction stop {};
  stop.sa_handler = OnStop;
  stop.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &stop, nullptr);
  sigaction(SIGTERM, &stop, nullptr);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}

void RequestStop() {
  const uint64_t one = 1;
  if (write(g_iStop, &one, sizeof one) < 0) {
    // Full means that it is readable already.
  }
}

bool WaitForStop(unsigned milliseconds, int other) {
  pollfd wait[] = {{g_iStop, POLLIN, 0}, {other, POLLIN, 0}};
  return poll(wait, 2, static_cast<int>(milliseconds)) > 0 && wait[0].revents != 0;
}

bool StopRequested() {
  return WaitForStop(0);
}

int StopDescriptor() {
  return g_iStop;
}
