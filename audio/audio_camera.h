// What audio output needs of the camera whose speaker it plays on.
#pragma once

#include "host/base/gxstring.h"

#include <netinet/in.h>

class CIntercomClient;
class CTraceProducer;

// CONVIFCam implements it; every operation may be called from any thread.
class CAudioCamera {
 public:
  virtual ~CAudioCamera() = default;

  // The camera's address, network order. An address that is not known leaves the argument as it is.
  virtual bool GetCameraAddress(sockaddr_in* address) const = 0;
  virtual CGXString SerialNo() const = 0;
  virtual void MicMute(int mute) = 0;                // non-zero: its microphone is not to be heard
  virtual CIntercomClient* OwnIntercomClient() = 0;  // the camera as a party of the intercom
  virtual CTraceProducer* TraceProducer() = 0;       // who speaks for it; never null
};
