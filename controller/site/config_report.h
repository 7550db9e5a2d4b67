// A camera's configuration as text for people and as JSON for programs.
#pragma once

#include "controller/site/camera_config.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

const char* ListName(RTSP_PROFILE_TYPE list);  // "h264" or "jpeg"
const char* TransportName(int transport);      // "tcp" or "udp"
std::string SizeText(const GXT_RESOLUTION& size);
std::string SettingsText(const CStreamSettings& settings);  // one line

// Appends a titled table, unless it has nothing but its headings.
void AddTable(const char* title, std::vector<std::vector<std::string>> rows, std::string* text);

// Tables with their titles, appended.
void AddEncoders(const CCameraConfig& config, std::string* text);  // profiles and encoders
void AddStreams(const CCameraConfig& config, std::string* text);

// settings: encoding, size ("640x480"), quality, frame_rate, bitrate (kbit/s), gov_length, interval,
// h264_profile where there is one.
nlohmann::json SettingsJSON(const CStreamSettings& settings);
nlohmann::json ProfilesJSON(const CCameraConfig& config);
nlohmann::json EncodersJSON(const CCameraConfig& config);
// list, number (from 1), name, profile, encoder, transport, settings.
nlohmann::json StreamJSON(RTSP_PROFILE_TYPE list, size_t number, const CUserStream& stream);
nlohmann::json StreamsJSON(const CCameraConfig& config);
