// Asks a camera for what is needed to open one of its streams.
#pragma once

#include "host/system/sink_server.h"
#include "host/video/video.h"

#include <chrono>
#include <memory>

// A camera that is not ready for it answers nothing, brings itself into line and then gives a notice. Asking
// again before that would only queue the same work again, so the next question waits for the notice, or for 5
// s. A notice permits one more question, and only when the camera has taken the stream's settings: one that
// refuses them would be asked without a pause.
class CProfileRequest : public CNotifySink {
 public:
  static constexpr std::chrono::seconds ASK_AGAIN{5};

  CProfileRequest(CVideoSystem* camera, RTSP_PROFILE_TYPE type, int index);
  ~CProfileRequest() override;

  // Main thread, again and again: the profile, once; null while there is none.
  std::unique_ptr<CRTSPProfile> Poll();

  // The camera has given its notice, but runs something else than the stream's settings. Until it is asked
  // again.
  bool Refused() const { return m_Step == EStep::Refused; }

  void OnNotify(int id, int code) override;

 private:
  enum class EStep { Asked, Noticed, AskedAgain, Refused };

  CVideoSystem* const m_pCamera;
  const RTSP_PROFILE_TYPE m_Type;
  const int m_iIndex;
  int m_iCode = 0;  // of the notice that is waited for
  EStep m_Step = EStep::Asked;
  std::chrono::steady_clock::time_point m_NextRound;
};

// Whether a notice of that code is the one waited for; the byte 255 of either code stands for any.
bool NoticeMatches(int waitedFor, int code);
