#pragma once
// The switches that make a simulated camera behave as awkwardly as real ones do.
#include <nlohmann/json_fwd.hpp>
#include <string>

// Current switch positions of one camera. What each does stands in the table in quirks.cpp (`camsim
// --list-quirks`).
struct CQuirks {
  int clockOffset = 0;      // seconds that the camera's clock is ahead of ours
  int clockTolerance = 10;  // seconds that a login's creation time may differ from the camera's clock
  bool rejectReplay = false;
  bool authDeviceInfo = false;
  bool bare401 = false;
  bool noSnapshot = false;
  bool noGetServices = false;
  bool noGetCapabilities = false;
  bool discoverySilent = false;
  std::string xaddrs = "one";
  std::string http = "normal";
  bool httpKeepOpen = false;
  bool httpContinue = false;
  int httpSegmentMs = 0;
  std::string xmlEmpty = "pair";
  std::string encoderSet = "exact";
  std::string ptzSpace = "continuous";
  std::string notify = "whole";
  bool parameterSetsInBand = true;
  int rtcpIntervalMs = 0;
  std::string sipInvite = "answer";
  int sipAnswerMs = 200;
  bool sipOptionsSilent = false;
  bool sipByeSilent = false;
  int sipLoseAcks = 0;
  int sipInfoMs = 10000;
  int sipHangUpMs = 0;
};

// Sets one switch from its text ("on", "3600", "chunked"). False with a reason in `error` for an unknown name
// or value.
bool SetQuirk(CQuirks& quirks, const std::string& name, const std::string& value, std::string* error);

// All switches with their positions, as the control address shows them.
nlohmann::json QuirksToJson(const CQuirks& quirks);

// One line a switch: name, values, meaning.
std::string QuirkHelp();
