// The panel's microphone, which is a file or a tone: sends what the panel says to all who listen.
#pragma once

#include "controller/panel/opus_packets.h"
#include "controller/panel/talk_counts.h"
#include "host/base/gxworker.h"
#include "host/intercom/audio_relay.h"
#include "host/intercom/audio_stream.h"
#include "host/intercom/intercom_client.h"
#include "host/intercom/rtsp_server.h"

#include <memory>
#include <vector>

// Attach and Detach under the main-thread lock. A thread works while there are listeners.
class CPanelMouth {
 public:
  explicit CPanelMouth(CIntercomClient* own) : m_pOwn(own) {}  // the panel itself, who is at the near end
  ~CPanelMouth();
  CPanelMouth(const CPanelMouth&) = delete;
  CPanelMouth& operator=(const CPanelMouth&) = delete;

  void Say(CSpeech speech);  // from now on; any thread

  // As HandleAudioStreamTargetAttach has it.
  bool Attach(CAudioStreamTarget* target, GXT_RTP_PATH_DESCRIPTOR* path, STREAM_CTX ctx,
              std::shared_ptr<CTalkCounts> counts);
  bool Detach(CAudioStreamTarget* target);

 private:
  struct CListener {
    CAudioStreamTarget* Target = nullptr;  // only compared by the thread
    std::unique_ptr<CAudioRelay> Relay;
    unsigned short PortBase = 0;  // of AllocRTSPPort; 0: the listener's own
    CRTSPServer Way;              // with this one listener
    std::shared_ptr<CTalkCounts> Counts;
  };
  bool Open(CListener* listener, GXT_RTP_PATH_DESCRIPTOR* path, STREAM_CTX ctx);
  bool OpenDirect(CListener* listener, const GXT_RTP_PATH_DESCRIPTOR* path);
  bool OpenRelayed(CListener* listener, GXT_RTP_PATH_DESCRIPTOR path);
  void Close(CListener* listener);
  bool StartThread();
  static unsigned ThreadProc(void* mouth);
  void Run();
  bool Speak(COpusPackets* packets);

  CIntercomClient* const m_pOwn;
  CGXCritical m_Lock;
  std::vector<std::unique_ptr<CListener>> m_Listeners GUARDED_BY(m_Lock);
  CSpeech m_Speech GUARDED_BY(m_Lock);
  CGXWorker m_Worker;
};
