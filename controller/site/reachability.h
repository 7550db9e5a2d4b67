// Says why a camera does not answer: asks its address itself, on a thread of its own.
#pragma once

#include "host/base/gxthread.h"

#include <chrono>
#include <mutex>
#include <string>

class CReachability {
 public:
  ~CReachability();  // breaks a check off

  void Check(const std::string& url);  // unless one is under way or hardly over
  std::string Finding() const;         // of the last check; empty when none has ended

 private:
  static unsigned Ask(void* self);

  std::string m_URL;  // of the check under way
  std::chrono::steady_clock::time_point m_Next;
  mutable std::mutex m_Lock;
  std::string m_Finding;  // m_Lock
  CGXThread m_Thread;
};

// Connects once: "Connection refused" and the like, or that something answers there.
std::string TryConnecting(const std::string& url);
