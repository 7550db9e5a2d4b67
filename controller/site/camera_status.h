// What there is to say about one camera at one moment: for the display, the summary and programs.
#pragma once

#include "controller/panel/call_book.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct CStreamStatus {
  std::string Kind;  // "JPEG" or "H264"
  int Width = 0, Height = 0;
  double FPS = 0;                 // as the driver counts: of H.264 every slice
  double PicturesPerSecond = -1;  // of H.264; -1: not known
  std::string State;              // "starting", "running" or "failed"; empty: not known
  std::string Reason;             // of "failed"
  int NextTryMs = -1;             // until it is tried again; -1: not planned
};

// Something that was asked of a camera, and whether the camera was then seen to have done it.
struct CAskedCommand {
  std::string Name;
  bool Seen = false;
};

struct CCameraStatus {
  int Type = 0, ID = 0;
  std::string Name, Manufacturer, Model, Firmware, Serial, ServiceURL;
  std::string State;   // "running", "running without profiles", "running without streams", "loading", "failed"
  std::string Reason;  // of a state that is not as it should be; may be empty
  std::string Step, LastLine;
  std::vector<std::string> Steps;  // the last trace lines, in order
  int64_t LinesSaid = 0;           // of which so many have been said so far
  double FPS = 0;                  // JPEG pictures a second, all streams
  int Motion = -1;                 // -1 unknown, 0 none, 100 motion
  int64_t Events = 0;              // motion and alarm events raised
  std::vector<CAskedCommand> Commands;
  std::optional<CCallCounts> Calls;  // of a door station
  std::vector<CStreamStatus> Streams;
  int64_t JPEGFrames = 0, H264Frames = 0;  // pictures delivered
  int64_t Dropped = 0;                     // pictures that should have been recorded and are in no file
  std::vector<std::string> Pictures, Recordings;
  std::string Problem;  // of recording, pictures or events, in plain words; empty when all is well
  double SecondsToRunning = -1, SecondsToPicture = -1;  // since the camera was started; -1: not yet
};
