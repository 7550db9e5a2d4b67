// The command line.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

enum class ECommand { None, Run, Discover, Components, Show, Ask };

struct COptions {
  ECommand Command = ECommand::None;

  // Every command
  std::string Plugin;     // path of the driver
  std::string Interface;  // network interface; empty: that of the default route
  std::string DataFolder = "onvifcam-data";
  std::string SiteFile, LogFile;  // default: in the data folder
  bool JSON = false;

  // run, discover, show
  std::string URL, User, Password;  // the password never comes from the command line
  // run
  int DiscoverMost = 8;  // found cameras that a site may have before a search installs no more
  bool Discover = false, Record = false;
  std::string RecordFolder, PictureFolder, KeepFolder, SummaryFile;
  std::string Answer = "ask";  // how the panel answers a door station: ask, accept or decline
  std::string SpeechFile;      // what it says; empty: a tone
  double ToneHz = 0;           // 0: silence
  std::string SoundFolder;     // of what it hears
  bool Relay = false;          // sound by way of a relay
  int Transport = -1;          // RTP_TRANSPORT; -1: as the site file says
  double Seconds = 0;          // how long to run; 0: until stopped
  // show
  std::vector<std::string> Cameras;
  double WaitSeconds = 20;
  // Ask: for the running controller
  nlohmann::json Request = nlohmann::json::object();
};

enum class EParse { Go, Done, Wrong };

// Reads the command line. Done: help was asked for, `text` is it. Wrong: `text` says what is.
EParse ParseOptions(int argc, const char* const* argv, COptions* options, std::string* text);

// Whether it can be a camera's service address: http://host[:port]/path. False with what is wrong about it.
bool CheckServiceURL(const std::string& url, std::string* error);
