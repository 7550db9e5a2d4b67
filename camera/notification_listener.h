// The port on which a camera's notifications arrive.
#pragma once

#include "camera/notification_framer.h"
#include "host/base/gxwait.h"
#include "host/net/socket.h"
#include "util/owned_socket.h"

#include <span>

// Serves one sender at a time, and answers each request that is whole with 202. One thread.
class CNotificationListener {
 public:
  static constexpr unsigned SILENCE_MS = 10000;  // a sender that is silent that long counts as gone
  static constexpr unsigned LIMIT_MS = 60000;    // and so does one that takes longer than a subscription lasts

  // On every address of the controller. False when the port is not to be had; 0 never is.
  bool Open(unsigned short port);

  // Waits for so long for something to happen, and does it. What a sender that is through had to say, answered
  // and with its connection closed; empty in any other case. It lives until the next call.
  std::span<char> Wait(unsigned milliseconds);

 private:
  void Accept();
  std::span<char> Receive();
  std::span<char> Close(CNotificationFramer::Result result);

  COwnedSocket m_Listen, m_Client;
  CNotificationFramer m_Framer;
  CGXDeadline m_Silence{SILENCE_MS}, m_Limit{LIMIT_MS};  // of the client
};
