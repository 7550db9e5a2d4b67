#pragma once
// What one simulated camera is and remembers. Services read and change it, the RTSP server and the control
// address show it.
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

struct CIdentity {
  std::string kind, name, manufacturer, model, firmware, serial, hardwareId, uuid;
  std::string soapPrefix = "s";  // makers differ: s:Envelope or SOAP-ENV:Envelope
};

struct CVideoEncoder {
  std::string token, name, encoding;  // encoding: JPEG or H264
  int width = 0, height = 0, quality = 0, frameRate = 0, interval = 1, bitrate = 0, govLength = 0;
  std::string h264Profile = "Baseline";
  int changes = 0;  // how often a client changed it
  bool operator==(const CVideoEncoder&) const = default;
};

struct CSimProfile {
  std::string token, name, rtspPath;  // path with its leading '/', and its query if it has one
  std::string videoEncoder;           // token of a CVideoEncoder
  bool audio = false, ptz = false;
};

struct CPreset {
  std::string token, name;
  CPtzVector position;
};

struct CSubscription {
  int id = 0;
  std::string consumer;  // URL to which notifications go
  std::chrono::steady_clock::time_point until;
};

// What the head was told and did.
struct CPtzCount {
  int moves = 0, zooms = 0, stops = 0, recalled = 0, stored = 0;  // moves: pan or tilt, of any kind
  std::string lastPreset;                                         // token of the last one recalled
};

struct CNotificationCount {
  int pending = 0;
  int sent = 0;      // completely, to one subscriber each
  int accepted = 0;  // of these, answered 202
  int failed = 0;    // no connection, or broken off
};

// Pictures of one profile. The counter is drawn into each picture and goes on over restarts of the stream.
struct CStreamCount {
  uint32_t next = 0;                    // counter of the next picture
  std::optional<uint32_t> first, last;  // of the present or latest run of the stream
  int sessions = 0;                     // RTSP sessions that play it
};

class CCameraModel {
 public:
  CCameraModel(CIdentity id, std::string addressText, int http, int rtsp)
      : identity(std::move(id)), address(std::move(addressText)), httpPort(http), rtspPort(rtsp) {}

  mutable std::mutex lock;  // guards every field but `identity`, which never changes

  const CIdentity identity;
  std::string address;
  int httpPort, rtspPort, sipPort = 5060;
  std::string soundFolder;  // of what the speaker plays; "": it is not kept
  CMicrophone microphone;
  std::string user, password;
  bool powered = true;
  CQuirks quirks;
  std::vector<CVideoEncoder> encoders;
  std::vector<CSimProfile> profiles;
  std::vector<CPreset> presets;
  int nextPreset = 100;
  CPtzHead head;
  CPtzCount ptzCount;
  std::vector<CSubscription> subscriptions;
  int nextSubscription = 1;
  bool motion = false, alarm = false;  // as last raised through the control address
  CNotificationCount notifications;
  uint32_t alarmsSent = 0;                      // datagrams
  std::string interfaceAddress;                 // of the interface that multicast goes to
  std::map<std::string, CStreamCount> streams;  // by profile token

  // What the camera saw.
  std::map<std::string, int> requests;  // by operation: "GetProfiles", "Probe", "snapshot"
  std::deque<std::string> recent;       // the latest requests with their outcome
  int authFailures = 0;

  // All below: caller holds the lock.
  CVideoEncoder* EncoderByToken(const std::string& token);
  CSimProfile* ProfileByToken(const std::string& token);
  CPreset* PresetByToken(const std::string& token);
  std::string HttpBase() const;                                         // http://127.0.0.11:8080
  std::string StreamUri(const CSimProfile& profile) const;              // rtsp://127.0.0.11:8554/Profile_1
  std::chrono::system_clock::time_point Clock() const;                  // the camera's own, quirk included
  void Note(const std::string& operation, const std::string& outcome);  // counts a request
  void DropLapsed();                                                    // subscriptions whose time is over
  nlohmann::json ToJson();
};

// The scopes of a camera (onvif://...), as its device service and its probe matches list them.
std::vector<std::string> ScopesOf(const CIdentity& identity);
// Identity, encoders, profiles and presets of a camera of that kind ("ptz", "door", "alarm"); `number` (1, 2,
// ...) makes serial numbers differ. False for an unknown kind.
bool DescribeKind(const std::string& kind, int number, CIdentity* identity);
void FillKind(CCameraModel& model);
