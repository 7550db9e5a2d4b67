// Moves and presets: what the host asks for is queued, so that no caller waits for the camera.
#include "camera/ONVIFCam.h"
#include "camera/ptz_proc.h"

int CONVIFCam::MoveFrame(int pan, int tilt, int /*reserved1*/, int /*reserved2*/) {
  m_Queue.Replace(std::make_unique<CCamMoveProc>(pan, tilt));  // only the newest move counts
  StartONVIFThread();
  return 1;
}

int CONVIFCam::StopMove() {
  PushProc(std::make_unique<CCamStopProc>());
  return 1;
}

int CONVIFCam::ZoomInOut(int direction) {
  PushProc(std::make_unique<CCamZoomProc>(direction));  // steps add up, none is dropped
  return 1;
}

int CONVIFCam::PresetControl(int store, int index) {
  PushProc(std::make_unique<CCamPresetControl>(store, index));
  return 1;
}

int CONVIFCam::NPresets() {
  const CProfileRef profile = RelativeMoveProfile();
  return profile != nullptr ? profile->NPresets() : 0;
}

CGXString CONVIFCam::PresetName(int index) {
  const CProfileRef profile = RelativeMoveProfile();
  const auto preset = profile != nullptr ? profile->Preset(index) : nullptr;
  return preset != nullptr ? preset->Name() : CGXString();
}
