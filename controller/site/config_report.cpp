#include "controller/site/config_report.h"

#include "controller/terminal/report.h"

#include <nlohmann/json.hpp>

using nlohmann::json;
using Rows = std::vector<std::vector<std::string>>;

namespace {

std::string RangeText(const GXT_RANGE& range) {
  return std::to_string(range.Min) + ".." + std::to_string(range.Max);
}

std::string OptionsText(const CConfigOptions& o) {
  std::string text;
  for (const GXT_RESOLUTION& size : o.Sizes) text += SizeText(size) + " ";
  text += RangeText(o.FrameRate) + " fps " + RangeText(o.Bitrate) + " kbit/s";
  for (const int code : o.H264Profiles) text += std::string(" ") + H264ProfileName(code);
  return text;
}

json RangeJSON(const GXT_RANGE& range) {
  return {range.Min, range.Max};
}

json OptionsJSON(const CConfigOptions& o) {
  json sizes = json::array(), profiles = json::array();
  for (const GXT_RESOLUTION& size : o.Sizes) sizes.push_back(SizeText(size));
  for (const int code : o.H264Profiles) profiles.push_back(H264ProfileName(code));
  return {{"sizes", sizes},
          {"frame_rate", RangeJSON(o.FrameRate)},
          {"bitrate", RangeJSON(o.Bitrate)},
          {"gov_length", RangeJSON(o.GovLength)},
          {"interval", RangeJSON(o.Interval)},
          {"h264_profiles", profiles}};
}

}  // namespace

const char* ListName(RTSP_PROFILE_TYPE type) {
  return type == RTSP_PROFILE_H264 ? "h264" : "jpeg";
}

const char* TransportName(int transport) {
  return transport == RTP_TRANSPORT_TCP ? "tcp" : "udp";
}

std::string SizeText(const GXT_RESOLUTION& size) {
  return std::to_string(size.Width) + "x" + std::to_string(size.Height);
}

std::string SettingsText(const CStreamSettings& s) {
  std::string text = s.Encoding + " " + SizeText(s.Size) + " " + std::to_string(s.FrameRate) + " fps " +
                     std::to_string(s.Bitrate) + " kbit/s quality " + std::to_string(s.Quality);
  if (s.GovLength > 0) text += " key frame every " + std::to_string(s.GovLength);
  return *H264ProfileName(s.H264Profile) != '\0' ? text + " " + H264ProfileName(s.H264Profile) : text;
}

void AddTable(const char* title, Rows rows, std::string* text) {
  if (rows.size() < 2) return;
  for (auto& row : rows)
    for (std::string& cell : row) cell = Printable(cell);
  *text += std::string("\n") + title + "\n" + Table(rows);
}

void AddEncoders(const CCameraConfig& config, std::string* text) {
  Rows profiles(1, {"Token", "Name", "Settings"}), encoders(1, {"Token", "Name", "Can do"});
  for (const CConfigProfile& p : config.Profiles)
    profiles.push_back({p.Token, p.Name, SettingsText(p.Settings)});
  for (const CConfigEncoder& e : config.Encoders) {
    encoders.push_back({e.Token, e.Name, "at present " + SettingsText(e.Settings)});
    if (!e.H264.Sizes.empty()) encoders.push_back({"", "", "H264 " + OptionsText(e.H264)});
    if (!e.JPEG.Sizes.empty()) encoders.push_back({"", "", "JPEG " + OptionsText(e.JPEG)});
  }
  AddTable("Profiles", std::move(profiles), text);
  AddTable("Encoders", std::move(encoders), text);
}

void AddStreams(const CCameraConfig& config, std::string* text) {
  Rows rows(1, {"List", "No.", "Name", "Profile", "Encoder", "Transport", "Settings"});
  for (const RTSP_PROFILE_TYPE list : {RTSP_PROFILE_H264, RTSP_PROFILE_JPEG}) {
    size_t number = 0;
    for (const CUserStream& s : config.UserStreams(list).Streams)
      rows.push_back({ListName(list), std::to_string(++number), s.Name, s.ProfileToken, s.EncoderToken,
                      TransportName(s.Transport), SettingsText(s.Settings)});
  }
  AddTable("Streams as the user wants them", std::move(rows), text);
}

json SettingsJSON(const CStreamSettings& s) {
  json settings = {{"encoding", s.Encoding},    {"size", SizeText(s.Size)}, {"quality", s.Quality},
                   {"frame_rate", s.FrameRate}, {"bitrate", s.Bitrate},     {"gov_length", s.GovLength},
                   {"interval", s.Interval}};
  if (*H264ProfileName(s.H264Profile) != '\0') settings["h264_profile"] = H264ProfileName(s.H264Profile);
  return settings;
}

json ProfilesJSON(const CCameraConfig& config) {
  json profiles = json::array();
  for (const CConfigProfile& p : config.Profiles)
    profiles.push_back({{"name", p.Name}, {"token", p.Token}, {"settings", SettingsJSON(p.Settings)}});
  return profiles;
}

json EncodersJSON(const CCameraConfig& config) {
  json encoders = json::array();
  for (const CConfigEncoder& e : config.Encoders)
    encoders.push_back({{"name", e.Name},
                        {"token", e.Token},
                        {"quality", RangeJSON(e.Quality)},
                        {"settings", SettingsJSON(e.Settings)},
                        {"jpeg", OptionsJSON(e.JPEG)},
                        {"h264", OptionsJSON(e.H264)}});
  return encoders;
}

json StreamJSON(RTSP_PROFILE_TYPE list, size_t number, const CUserStream& s) {
  return {{"list", ListName(list)},
          {"number", number},
          {"name", s.Name},
          {"profile", s.ProfileToken},
          {"encoder", s.EncoderToken},
          {"transport", TransportName(s.Transport)},
          {"settings", SettingsJSON(s.Settings)}};
}

json StreamsJSON(const CCameraConfig& config) {
  json streams = json::array();
  for (const RTSP_PROFILE_TYPE list : {RTSP_PROFILE_H264, RTSP_PROFILE_JPEG}) {
    size_t number = 0;
    for (const CUserStream& s : config.UserStreams(list).Streams)
      streams.push_back(StreamJSON(list, ++number, s));
  }
  return streams;
}
