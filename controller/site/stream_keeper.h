// Brings a camera into line with the user's stream settings, and keeps it there. Main thread.
#pragma once

#include "controller/site/camera_config.h"
#include "controller/site/profile_request.h"

#include <memory>
#include <vector>

enum class EStreamState {
  Asking,   // the camera is being told
  Ready,    // it runs the settings
  Refused,  // it does not take them; it is told again every 5 s
};

// Of several entries that name one encoder or one profile only the first is kept: they would change the camera
// to and fro without end. Entries that leave the encoder as the camera has it need no keeping. Every 5 s it
// looks whether the camera still runs what it took: after a reset, or when somebody else has changed it, it may
// not.
class CStreamKeeper {
 public:
  explicit CStreamKeeper(CVideoSystem* camera) : m_pCamera(camera) {}

  void Restart(const CCameraConfig& config);  // once the camera is loaded, and after the settings have changed

  // Again and again. True when an entry has just become ready: the camera may have rounded its values.
  bool Pass();

  EStreamState State(RTSP_PROFILE_TYPE list, int index) const;  // Ready for an entry that is not kept
  bool Settling() const;                                        // whether any entry is being asked for

 private:
  struct Kept {
    RTSP_PROFILE_TYPE List;
    int Index;
    std::unique_ptr<CProfileRequest> Request;  // null while ready
  };
  void LookAgain();

  CVideoSystem* const m_pCamera;
  std::vector<Kept> m_Kept;
  std::chrono::steady_clock::time_point m_NextLook;
};
