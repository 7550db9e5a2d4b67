// The panel's loudspeaker, which is a file: takes the sound of one intercom client.
#pragma once

#include "controller/panel/heard_track.h"
#include "controller/panel/talk_counts.h"
#include "controller/panel/wav_file.h"
#include "host/base/gxthread.h"
#include "host/intercom/audio_relay.h"
#include "host/intercom/audio_stream.h"
#include "host/intercom/intercom_client.h"

#include <memory>
#include <string>

// Under the main-thread lock, but for its thread. `own` is the panel itself, who is at the near end of the
// path.
class CPanelEars : public CAudioStreamTarget {
 public:
  // Begins to listen to `client`, through a relay of its own when asked to. An empty `wavPath`: nothing is
  // kept.
  CPanelEars(CIntercomClient* own, CIntercomClient* client, bool relayed, const std::string& wavPath,
             std::shared_ptr<CTalkCounts> counts);
  ~CPanelEars() override;  // no more sound, and the file is complete

  bool Works() const { return m_iSocket != -1; }
  const std::string& Problem() const { return m_Problem; }  // of the file; empty when all is well
  void Mute(bool muted) { m_bMuted = muted; }               // silence is kept instead; any thread

  void ProcessAudioSourceAddressInfo(GXT_RTP_PATH_DESCRIPTOR* path) override { HelloTo(*path); }
  CIntercomClient* IntercomClient() override { return m_pClient; }

 private:
  bool Attach(CIntercomClient* own);
  void HelloTo(const GXT_RTP_PATH_DESCRIPTOR& source);
  bool OpenSocket();
  static unsigned ThreadProc(void* ears);
  void Run();
  void Receive();
  void SayHello();
  void Count();

  CIntercomClient* const m_pClient;
  const bool m_bRelayed;
  const std::shared_ptr<CTalkCounts> m_pCounts;
  std::string m_Problem;
  std::unique_ptr<CAudioRelay> m_pRelay;
  int m_iSocket = -1;
  std::atomic<bool> m_bMuted{false};
  CGXCritical m_PathLock;
  GXT_RTP_PATH_DESCRIPTOR m_Source GUARDED_BY(m_PathLock){};  // where hellos go
  // The thread's own.
  CHeardTrack m_Track;
  CHeardCounts m_Told;  // to m_pCounts
  CWavFile m_File;
  CGXDeadline m_NextHello{0};
  CGXThread m_Thread;
};
