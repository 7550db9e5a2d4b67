// A path for sound between two who do not reach one another directly, through a machine that both reach.
//
// The source sends to one leg, the listener gets it from the other. Each opens its leg with hellos (see
// host/intercom/rtp_path.h): the first fixes where that leg's packets go and come from. Once both are open,
// hellos are answered with a startup packet until sound flows. What else comes in on the source's leg goes out
// on the listener's.
#pragma once

#include "host/base/gxthread.h"
#include "host/base/gxwait.h"
#include "host/intercom/rtp_path.h"

// Works from construction to destruction, on a thread of its own.
class CAudioRelay {
 public:
  explicit CAudioRelay(unsigned address);  // of this machine, network order
  ~CAudioRelay();                          // the path is gone; both ends hear nothing from then on
  CAudioRelay(const CAudioRelay&) = delete;
  CAudioRelay& operator=(const CAudioRelay&) = delete;

  bool Works() const { return m_bWorks; }
  GXT_RTP_PATH_DESCRIPTOR SourcePath() const { return m_Source.Path; }
  GXT_RTP_PATH_DESCRIPTOR ListenerPath() const { return m_Listener.Path; }

 private:
  struct CLeg {
    int Socket = -1;
    GXT_RTP_PATH_DESCRIPTOR Path{};  // our end of it
    sockaddr_in Peer{};              // port 0: not known yet
    CGXDeadline NextStartup{0};      // no earlier: an end answers a startup packet with a hello
    bool Open(unsigned address);
    bool Knows() const { return Peer.sin_port != 0; }
    bool Takes(const sockaddr_in& sender, bool hello);
    void Send(const unsigned char* data, size_t length) const;
    void SendStartup();
  };
  static unsigned ThreadProc(void* relay);
  void Run();
  void Receive(CLeg* leg);

  CLeg m_Source, m_Listener;
  bool m_bFlows = false;  // sound has come through; relay's thread only
  bool m_bWorks = false;
  CGXThread m_Thread;
};
