// The WS-Security header (OASIS UsernameToken Profile 1.0, password digest) in front of an authenticated
// request.
#pragma once

#include "host/base/gxtime.h"
#include "onvif/onvif_msg.h"

class CGXTimer;

inline constexpr int NONCE_BYTES = 22;         // as digested and sent
inline constexpr int NONCE_RANDOM_BYTES = 16;  // letters; zeros follow

// "s:Header" with the Security element inside. Time stamps are the camera's own: its clock as read, advanced by
// what the timer that was started at that reading shows.
class CONVIFLoginHeader : public CONVIFMsg {
 public:
  CONVIFLoginHeader(CGXString user, CGXString password, CGXTime cameraTime, CGXTimer* sinceClockRead);

  // Appends the Security element to `header`. Any thread; draws from rand().
  static void AppendCredentials(CONVIFMsg* header, CGXString user, CGXString password, CGXTime cameraTime,
                                CGXTimer* sinceClockRead);

  // Base64(SHA-1(nonce, created, password)); a password of any length.
  static CGXString PasswordDigest(const unsigned char (&nonce)[NONCE_BYTES], const CGXString& created,
                                  const CGXString& password);
};
