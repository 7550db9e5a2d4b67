// What the alarm listener needs of a camera.
#pragma once

// CONVIFCam implements it together with the host's operation of the same name.
class CAlarmCamera {
 public:
  virtual ~CAlarmCamera() = default;

  // One datagram as received, of any camera; `data` lives only as long as the call. On the listener's thread,
  // which must not be made to wait for a registration.
  virtual void FileThreadProcessEvent(unsigned char* data, int length) = 0;
};
