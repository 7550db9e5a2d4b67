// Changes to a camera's user stream settings, checked against what the camera offers.
#pragma once

#include "controller/site/camera_config.h"

#include <nlohmann/json_fwd.hpp>
#include <string>

// Changes entry `number` (from 1; one more than there are adds one) as the members of `changes` say:
//   name, profile, encoder (tokens; "default": leave the encoder as the camera has it), transport ("tcp",
//   "udp"), encoding, size ("640x480"), quality, frame_rate, bitrate, gov_length, interval, h264_profile
// A setting of the encoder needs an entry that names its encoder; where it is clear which one runs the profile,
// it is filled in. False with a reason, and `config` unchanged.
bool ChangeStream(CCameraConfig* config, RTSP_PROFILE_TYPE list, size_t number, const nlohmann::json& changes,
                  std::string* error);

bool RemoveStream(CCameraConfig* config, RTSP_PROFILE_TYPE list, size_t number, std::string* error);
