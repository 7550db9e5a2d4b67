// What the media model needs of a camera to ask it for streams, presets and session descriptions.
#pragma once

#include "host/base/gxstring.h"

class CONVIFLoginHeader;

// CONVIFCam implements it; every operation may be called from any thread and returns a copy.
class CMediaCamera {
 public:
  virtual ~CMediaCamera() = default;

  virtual CONVIFLoginHeader*
  CreateLoginHeader() = 0;                 // security header for one request, the caller's; may be null
  virtual CGXString MediaURL() const = 0;  // address of the media service
  virtual CGXString PTZURL() const = 0;    // address of the PTZ service
  virtual CGXString UserName() const = 0;
  virtual CGXString Password() const = 0;
};
