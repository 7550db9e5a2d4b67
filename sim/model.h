// What one simulated camera is and remembers. Services read and change it, the RTSP server and the control
// address show it.
#pragma once

#include "sim/microphone.h"
#include "sim/ptz_head.h"
#include "sim/quirks.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

struct CSimIdentity {
  std::string Kind, Name, Manufacturer, Model, Firmware, Serial, HardwareId, UUID;
  std::string SOAPPrefix = "s";  // makers differ: s:Envelope or SOAP-ENV:Envelope
};

struct CVideoEncoder {
  std::string Token, Name, Encoding;  // encoding: JPEG or H264
  int Width = 0, Height = 0, Quality = 0, FrameRate = 0, Interval = 1, Bitrate = 0, GovLength = 0;
  std::string H264Profile = "Baseline";
  int Changes = 0;  // how often a client changed it
  bool operator==(const CVideoEncoder&) const = default;
};

struct CSimProfile {
  std::string Token, Name, RTSPPath;  // path with its leading '/', and its query if it has one
  std::string VideoEncoder;           // token of a CVideoEncoder
  bool Audio = false, PTZ = false;
};

struct CPreset {
  std::string Token, Name;
  CPTZVector Position;
};

struct CSubscription {
  int Id = 0;
  std::string Consumer;  // URL to which notifications go
  std::chrono::steady_clock::time_point Until;
};

// What the head was told and did.
struct CPTZCount {
  int Moves = 0, Zooms = 0, Stops = 0, Recalled = 0, Stored = 0;  // moves: pan or tilt, of any kind
  std::string LastPreset;                                         // token of the last one recalled
};

struct CNotificationCount {
  int Pending = 0;
  int Sent = 0;      // completely, to one subscriber each
  int Accepted = 0;  // of these, answered 202
  int Failed = 0;    // no connection, or broken off
};

// Pictures of one profile. The counter is drawn into each picture and goes on over restarts of the stream.
struct CStreamCount {
  uint32_t Next = 0;                    // counter of the next picture
  std::optional<uint32_t> First, Last;  // of the present or latest run of the stream
  int Sessions = 0;                     // RTSP sessions that play it
};

class CCameraModel {
 public:
  CCameraModel(CSimIdentity id, std::string addressText, int http, int rtsp)
      : Identity(std::move(id)), Address(std::move(addressText)), HTTPPort(http), RTSPPort(rtsp) {}

  mutable std::mutex Lock;  // guards every field but `Identity`, which never changes

  const CSimIdentity Identity;
  std::string Address;
  int HTTPPort, RTSPPort, SIPPort = 5060;
  std::string SoundFolder;  // of what the speaker plays; "": it is not kept
  CMicrophone Microphone;
  std::string User, Password;
  bool Powered = true;
  CQuirks Quirks;
  std::vector<CVideoEncoder> Encoders;
  std::vector<CSimProfile> Profiles;
  std::vector<CPreset> Presets;
  int NextPreset = 100;
  CPTZHead Head;
  CPTZCount PTZCounts;
  std::vector<CSubscription> Subscriptions;
  int NextSubscription = 1;
  bool Motion = false, Alarm = false;  // as last raised through the control address
  CNotificationCount Notifications;
  uint32_t AlarmsSent = 0;                      // datagrams
  std::string InterfaceAddress;                 // of the interface that multicast goes to
  std::map<std::string, CStreamCount> Streams;  // by profile token

  // What the camera saw.
  std::map<std::string, int> Requests;  // by operation: "GetProfiles", "Probe", "snapshot"
  std::deque<std::string> Recent;       // the latest requests with their outcome
  int AuthFailures = 0;

  // All below: caller holds the lock.
  CVideoEncoder* EncoderByToken(const std::string& token);
  CSimProfile* ProfileByToken(const std::string& token);
  CPreset* PresetByToken(const std::string& token);
  std::string HTTPBase() const;                                         // http://127.0.0.11:8080
  std::string StreamURI(const CSimProfile& profile) const;              // rtsp://127.0.0.11:8554/Profile_1
  std::chrono::system_clock::time_point Clock() const;                  // the camera's own, quirk included
  void Note(const std::string& operation, const std::string& outcome);  // counts a request
  void DropLapsed();                                                    // subscriptions whose time is over
  nlohmann::json ToJSON();
};

// The scopes of a camera (onvif://...), as its device service and its probe matches list them.
std::vector<std::string> ScopesOf(const CSimIdentity& identity);
// Identity, encoders, profiles and presets of a camera of that kind ("ptz", "door", "alarm"); `number` (1, 2,
// ...) makes serial numbers differ. False for an unknown kind.
bool DescribeKind(const std::string& kind, int number, CSimIdentity* identity);
void FillKind(CCameraModel& model);
