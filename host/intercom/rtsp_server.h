// The relay of a camera's sound to those who listen.
//
// A camera keeps one CRTSPServer while somebody listens, and hands every RTP packet that it receives to each
// client. Nothing here blocks or takes a lock; who shares one among threads guards it.
#pragma once

#include "host/base/gxwait.h"
#include "host/intercom/rtp_path.h"

#include <memory>
#include <vector>

class CAudioStreamTarget;

inline constexpr int RTSP_CLIENT_ALL = 0;
inline constexpr int RTSP_CLIENT_AUDIO = 2;

// One listener.
class CRTSPClient {
 public:
  ~CRTSPClient();
  CRTSPClient(const CRTSPClient&) = delete;
  CRTSPClient& operator=(const CRTSPClient&) = delete;

  int CTX() const { return RTSP_CLIENT_AUDIO; }
  // A direct listener always is. A relayed one is once the relay has answered a hello with its startup packet;
  // asking sends the hellos that are due and reads what came.
  bool ReadyForAudio();
  int SendPacket(const unsigned char* data, int length);  // one RTP packet; the bytes sent, -1 when it was lost
  unsigned short Port() const { return m_wPort; }         // the local one; 0 for any

 private:
  friend class CRTSPServer;
  CRTSPClient(const CAudioStreamTarget* target, const GXT_RTP_PATH_DESCRIPTOR& path, unsigned short port,
              bool relayed);
  void SayHello();
  void ReadSocket();

  const CAudioStreamTarget* const m_pTarget;  // only compared
  const GXT_RTP_PATH_DESCRIPTOR m_Path;
  const unsigned short m_wPort;
  int m_iSocket;
  bool m_bReady;
  CGXDeadline m_NextHello{0};
};

class CRTSPServer {
 public:
  CRTSPServer();
  ~CRTSPServer();

  int NClients(int ctx) const;           // RTSP_CLIENT_ALL or RTSP_CLIENT_AUDIO
  CRTSPClient* Client(int index) const;  // of all; null past the end
  // Both: non-zero when it listens from now on; a target that did so already is taken anew. `path` is copied.
  // LOCAL sends from `port` (host order) to the path; where this has no port, to the target's AudioSourcePort.
  // STUN sends to the relay at the path.
  int AttachAudioClientLOCAL(const CAudioStreamTarget* target, const GXT_RTP_PATH_DESCRIPTOR* path,
                             unsigned short port);
  int AttachAudioClientSTUN(const CAudioStreamTarget* target, const GXT_RTP_PATH_DESCRIPTOR* path);
  bool DetachAudioClient(const CAudioStreamTarget* target);  // false: it did not listen

 private:
  int Add(std::unique_ptr<CRTSPClient> client);
  std::vector<std::unique_ptr<CRTSPClient>> m_Clients;
};
