// What a camera says of itself: what runs, what does not, why, and when that is tried again.
#pragma once

#include "host/base/gxstring.h"

// Of one thing that a camera does. A copy, true at the moment it was asked for.
struct GXT_REPORT {
  enum class STATE { Off, Starting, Running, Failed };  // Off: not wanted, or not begun
  static constexpr int NOT_PLANNED = -1;

  STATE State = STATE::Off;
  CGXString Reason;           // of Failed, in plain words that stand behind a colon; else empty
  int RetryMs = NOT_PLANNED;  // until it is tried again; 0: at any moment
};

// Of a camera's service as a whole. Running: every step of loading is done.
struct GXT_SERVICE_REPORT : GXT_REPORT {
  CGXString Step;  // under way, or the one that failed, as a user says it ("encoder settings"); else empty
  // What the camera refused of what it was asked while it was loaded: the operation, and the camera's own words
  // cleaned and cut; empty when nothing. A camera may run all the same, without what it did not tell.
  CGXString Refused;
  bool LoginRefused = false;  // and the refusal was of the login: its user name, its password or its time
};

// Of one stream of a camera, while somebody wants it. Running: data has come within the last seconds.
struct GXT_STREAM_REPORT : GXT_REPORT {
  static constexpr int RECORDED = 3;  // number of the H.264 stream for the recording

  int Stream = 0;  // 0 to 2: the JPEG streams; or RECORDED
  // H.264 units that were larger than the driver keeps (128,000 bytes, or 256,000 with a key picture's
  // parameter sets) and so are in no recording; a lower bit rate or resolution makes them smaller.
  unsigned TooLarge = 0;
};
