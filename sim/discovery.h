// WS-Discovery: answers probes for network video transmitters, one answer a camera, from the camera's own
// address.
#pragma once

#include "sim/model.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// The ProbeMatches answer to a received datagram; "" when it is no probe for a camera of this kind. Caller
// holds the lock.
std::string AnswerProbe(const CCameraModel& model, const std::string& datagram);

class CDiscovery {
 public:
  ~CDiscovery() { Stop(); }
  // Joins the group on the interface with that address ("127.0.0.1") and starts to answer for `cameras`, which
  // must outlive this object. False with a reason in `error`.
  bool Start(const std::string& interfaceAddress, std::vector<CCameraModel*> cameras, std::string* error);
  void Stop();

 private:
  void Run();

  std::vector<CCameraModel*> m_Cameras;
  std::atomic<bool> m_BStop{false};
  int m_ISocket = -1;
  std::thread m_Thread;
};
