#include "host/base/gxwait.h"

#include "host/base/gxthread.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace {

// poll() on `awaited` (fd -1: on nothing) and the thread's cancel descriptor; false at the deadline and when
// cancelled.
bool PollCancellable(pollfd awaited, const CGXDeadline& deadline) {
  const int cancel = CGXThread::CurrentCancelDescriptor();
  for (;;) {
    pollfd both[2] = {awaited, {cancel, POLLIN, 0}};
    const int left = deadline.Left();
    const int ready = poll(both, 2, left);
    if (CGXThread::CurrentCancelled()) return false;
    if (both[0].revents != 0) return (both[0].revents & POLLNVAL) == 0;
    if (ready < 0 && errno != EINTR) return false;
    if (left == 0) return false;
  }
}

}  // namespace

int CGXDeadline::Left() const {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(m_End - std::chrono::steady_clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

bool GXPoll(int descriptor, GXT_POLL direction, const CGXDeadline& deadline) {
  if (descriptor < 0) return false;
  const short events = direction == GXT_POLL::Read ? POLLIN : POLLOUT;
  return PollCancellable({descriptor, events, 0}, deadline);
}

void GXPause(const CGXDeadline& deadline) {
  PollCancellable({-1, 0, 0}, deadline);
}
