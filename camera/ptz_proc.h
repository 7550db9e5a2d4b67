// Procs that move a camera: pan and tilt, zoom, stop, presets (ONVIF PTZ Service 5.3, 5.4). All of them use the
// camera's first profile with PTZ and fail without one.
#pragma once

#include "camera/ONVIF_proc.h"

// Pan and tilt in percent, -100 to 100, positive to the right and down (the camera's tilt grows upwards): parts
// of the picture where the camera moves in those, else speeds.
class CCamMoveProc : public CONVIF_Proc {
 public:
  static constexpr int TYPE = 1;
  CCamMoveProc(int pan, int tilt) : CONVIF_Proc(TYPE), m_iPan(pan), m_iTilt(tilt) {}
  int DoProc(CONVIFCam* camera) override;

 private:
  const int m_iPan, m_iTilt;
};

// One step of an eighth of the zoom range. Above 0 it goes towards the range's minimum: the host's panels count
// zooming out as positive.
class CCamZoomProc : public CONVIF_Proc {
 public:
  static constexpr int TYPE = 2;
  explicit CCamZoomProc(int direction) : CONVIF_Proc(TYPE), m_iDirection(direction) {}
  int DoProc(CONVIFCam* camera) override;

 private:
  const int m_iDirection;
};

// Ends a move. Nothing is sent to a camera that moves by parts of its picture: it stops by itself.
class CCamStopProc : public CONVIF_Proc {
 public:
  int DoProc(CONVIFCam* camera) override;
};

// Goes to the camera's preset of that index, or (`store` not 0) stores the position over it; makes no new one.
class CCamPresetControl : public CONVIF_Proc {
 public:
  CCamPresetControl(int store, int index) : m_iStore(store), m_iIndex(index) {}
  int DoProc(CONVIFCam* camera) override;

 private:
  const int m_iStore, m_iIndex;
};
