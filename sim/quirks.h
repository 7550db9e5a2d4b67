// The switches that make a simulated camera behave as awkwardly as real ones do.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

// Current switch positions of one camera. What each does stands in the table in quirks.cpp (`camsim
// --list-quirks`).
struct CQuirks {
  int ClockOffset = 0;      // seconds that the camera's clock is ahead of ours
  int ClockTolerance = 10;  // seconds that a login's creation time may differ from the camera's clock
  bool RejectReplay = false;
  bool AuthDeviceInfo = false;
  bool Bare401 = false;
  bool NoSnapshot = false;
  bool NoGetServices = false;
  bool NoGetCapabilities = false;
  bool DiscoverySilent = false;
  std::string XAddrs = "one";
  std::string HTTP = "normal";
  bool HTTPKeepOpen = false;
  bool HTTPContinue = false;
  int HTTPSegmentMs = 0;
  std::string XMLEmpty = "pair";
  std::string EncoderSet = "exact";
  std::string PTZSpace = "continuous";
  std::string Notify = "whole";
  bool ParameterSetsInBand = true;
  int RTCPIntervalMs = 0;
  std::string SIPInvite = "answer";
  int SIPAnswerMs = 200;
  bool SIPOptionsSilent = false;
  bool SIPByeSilent = false;
  bool SIPTakeover = false;
  int SIPLoseAcks = 0;
  int SIPInfoMs = 10000;
  int SIPHangUpMs = 0;
};

// Sets one switch from its text ("on", "3600", "chunked"). False with a reason in `error` for an unknown name
// or value.
bool SetQuirk(CQuirks& quirks, const std::string& name, const std::string& value, std::string* error);

// All switches with their positions, as the control address shows them.
nlohmann::json QuirksToJSON(const CQuirks& quirks);

// One line a switch: name, values, meaning.
std::string QuirkHelp();
