// The one wait that all host waits are made of: for a descriptor, until a deadline, ended by cancelling the
// thread.
#pragma once

#include <chrono>

// A moment on the monotonic clock, so many milliseconds after construction.
class CGXDeadline {
 public:
  explicit CGXDeadline(unsigned milliseconds)
      : m_End(std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds)) {}

  int Left() const;  // milliseconds until then, rounded up; 0 once it has passed; at most INT_MAX

 private:
  std::chrono::steady_clock::time_point m_End;
};

enum class GXT_POLL { Read, Write };

// True when the descriptor is ready or has failed (the next operation says how). False at the deadline, at once
// on a cancelled CGXThread, and at once for a descriptor that is not open.
bool GXPoll(int descriptor, GXT_POLL direction, const CGXDeadline& deadline);

// Waits for the deadline or the thread's being cancelled.
void GXPause(const CGXDeadline& deadline);
