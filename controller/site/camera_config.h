// A camera's configuration record as GetONVIFConfig and SetONVIFConfig carry it. Item order of the record:
//   profiles: count, each { name, token, SETTINGS }
//   encoders: count, each { name, token, quality min, max, OPTIONS of JPEG, OPTIONS of H.264, SETTINGS }
//   H.264 user list, JPEG user list: default profile token, count,
//     each { name, profile token, encoder token, transport, SETTINGS }
//   SETTINGS: encoding, quality, key frame distance, interval, frame rate, bit rate, width, height, H.264
//   profile OPTIONS: count, each { width, height }; interval, key frame distance, frame rate, bit rate as min,
//   max;
//     count, each H.264 profile
// A tool sends back the two user lists only.
#pragma once

#include "host/base/gxmsg.h"
#include "host/video/rtsp_profile.h"

#include <string>
#include <vector>

inline constexpr int H264_PROFILE_ANY = 4;  // not H.264, or whatever profile the encoder runs

// Settings of one stream, wanted or current.
struct CStreamSettings {
  std::string Encoding;
  int Quality = 0, GovLength = 0, Interval = 0, FrameRate = 0, Bitrate = 0;  // frames a second, kbit/s
  GXT_RESOLUTION Size;
  int H264Profile = H264_PROFILE_ANY;
  bool operator==(const CStreamSettings&) const = default;
};

// "Baseline", "Main", "Extended", "High", or empty for none.
const char* H264ProfileName(int code);

struct CConfigProfile {
  std::string Name, Token;
  CStreamSettings Settings;
};

struct CConfigOptions {
  // kbit/s; what the driver fills in for a camera that announces no range
  static constexpr GXT_RANGE BITRATE_UNKNOWN = {256, 10000};
  std::vector<GXT_RESOLUTION> Sizes;
  GXT_RANGE Interval, GovLength, FrameRate, Bitrate;
  std::vector<int> H264Profiles;
};

struct CConfigEncoder {
  std::string Name, Token;
  GXT_RANGE Quality;
  CConfigOptions JPEG, H264;
  CStreamSettings Settings;
};

inline constexpr char DEFAULT_ENCODER[] = "<DEFAULT>";

// One stream as the user wants it. Encoder token "<DEFAULT>": as the camera has it.
struct CUserStream {
  std::string Name, ProfileToken, EncoderToken;
  int Transport = RTP_TRANSPORT_TCP;
  CStreamSettings Settings;
  bool operator==(const CUserStream&) const = default;
};

struct CUserStreams {
  std::string DefaultProfile;
  std::vector<CUserStream> Streams;
  bool operator==(const CUserStreams&) const = default;
};

struct CCameraConfig {
  std::vector<CConfigProfile> Profiles;
  std::vector<CConfigEncoder> Encoders;
  CUserStreams H264, JPEG;

  const CUserStreams& UserStreams(RTSP_PROFILE_TYPE list) const {
    return list == RTSP_PROFILE_H264 ? H264 : JPEG;
  }
  CUserStreams& UserStreams(RTSP_PROFILE_TYPE list) { return list == RTSP_PROFILE_H264 ? H264 : JPEG; }
};

// Reads the whole record. False when an item is missing, of the other kind, or a count is impossible.
bool ReadCameraConfig(const CGXMSG& msg, CCameraConfig* config);

// Writes the two user lists, as SetONVIFConfig takes them.
void WriteUserStreams(const CCameraConfig& config, CGXMSG* msg);
