#include "sim/model.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace {

constexpr size_t RECENT_REQUESTS = 64;

template <typename T>
T* ByToken(std::vector<T>& items, const std::string& token) {
  const auto found =
      std::find_if(items.begin(), items.end(), [&](const T& item) { return item.Token == token; });
  return found == items.end() ? nullptr : &*found;
}

nlohmann::json EncoderToJSON(const CVideoEncoder& e) {
  return {{"token", e.Token},
          {"name", e.Name},
          {"encoding", e.Encoding},
          {"width", e.Width},
          {"height", e.Height},
          {"quality", e.Quality},
          {"fps", e.FrameRate},
          {"interval", e.Interval},
          {"bitrate_kbit", e.Bitrate},
          {"gov", e.GovLength},
          {"h264_profile", e.H264Profile},
          {"changes", e.Changes}};
}

nlohmann::json StreamToJson(const CStreamCount& count) {
  nlohmann::json json = {
      {"sessions", count.Sessions}, {"next", count.Next}, {"first", nullptr}, {"last", nullptr}};
  if (count.First) json["first"] = *count.First;
  if (count.Last) json["last"] = *count.Last;
  return json;
}

nlohmann::json PositionToJSON(const CPTZVector& p) {
  return {{"pan", p.Pan}, {"tilt", p.Tilt}, {"zoom", p.Zoom}};
}

}  // namespace

CVideoEncoder* CCameraModel::EncoderByToken(const std::string& token) {
  return ByToken(Encoders, token);
}
CSimProfile* CCameraModel::ProfileByToken(const std::string& token) {
  return ByToken(Profiles, token);
}
CPreset* CCameraModel::PresetByToken(const std::string& token) {
  return ByToken(Presets, token);
}

std::string CCameraModel::HTTPBase() const {
  return "http://" + Address + ":" + std::to_string(HTTPPort);
}

std::string CCameraModel::StreamURI(const CSimProfile& profile) const {
  return "rtsp://" + Address + ":" + std::to_string(RTSPPort) + profile.RTSPPath;
}

std::chrono::system_clock::time_point CCameraModel::Clock() const {
  return std::chrono::system_clock::now() + std::chrono::seconds(Quirks.ClockOffset);
}

void CCameraModel::Note(const std::string& operation, const std::string& outcome) {
  ++Requests[operation];
  Recent.push_back(operation + " " + outcome);
  if (Recent.size() > RECENT_REQUESTS) Recent.pop_front();
}

void CCameraModel::DropLapsed() {
  const auto now = std::chrono::steady_clock::now();
  std::erase_if(Subscriptions, [&](const CSubscription& s) { return s.Until <= now; });
}

nlohmann::json CCameraModel::ToJSON() {
  const auto now = CPTZHead::Clock::now();
  DropLapsed();
  nlohmann::json json = {{"name", Identity.Name},
                         {"kind", Identity.Kind},
                         {"manufacturer", Identity.Manufacturer},
                         {"model", Identity.Model},
                         {"serial", Identity.Serial},
                         {"hardware_id", Identity.HardwareId},
                         {"address", Address},
                         {"service_url", HTTPBase() + "/onvif/device_service"},
                         {"powered", Powered},
                         {"quirks", QuirksToJSON(Quirks)},
                         {"requests", Requests},
                         {"recent", Recent},
                         {"auth_failures", AuthFailures},
                         {"ptz", PositionToJSON(Head.Position(now))}};
  json["microphone"] = {{"tone_hz", Microphone.ToneHz}, {"level", Microphone.Level}, {"file", Microphone.File}};
  json["ptz"]["moving"] = Head.MovingPanTilt(now) || Head.MovingZoom(now);
  json["ptz"]["moves"] = PTZCounts.Moves;
  json["ptz"]["zooms"] = PTZCounts.Zooms;
  json["ptz"]["stops"] = PTZCounts.Stops;
  json["ptz"]["presets_recalled"] = PTZCounts.Recalled;
  json["ptz"]["presets_stored"] = PTZCounts.Stored;
  json["ptz"]["last_preset"] = PTZCounts.LastPreset;
  json["motion"] = Motion;
  json["notifications"] = {{"pending", Notifications.Pending},
                           {"sent", Notifications.Sent},
                           {"accepted", Notifications.Accepted},
                           {"failed", Notifications.Failed}};
  json["alarm"] = Alarm;
  json["alarms_sent"] = AlarmsSent;
  json["presets"] = nlohmann::json::array();
  for (const CPreset& preset : Presets)
    json["presets"].push_back(
        {{"token", preset.Token}, {"name", preset.Name}, {"at", PositionToJSON(preset.Position)}});
  json["encoders"] = nlohmann::json::array();
  for (const CVideoEncoder& encoder : Encoders) json["encoders"].push_back(EncoderToJSON(encoder));
  json["profiles"] = nlohmann::json::array();
  for (const CSimProfile& profile : Profiles)
    json["profiles"].push_back({{"token", profile.Token},
                                {"name", profile.Name},
                                {"encoder", profile.VideoEncoder},
                                {"stream_uri", StreamURI(profile)},
                                {"stream", StreamToJson(Streams[profile.Token])}});
  json["subscriptions"] = nlohmann::json::array();
  for (const CSubscription& s : Subscriptions)
    json["subscriptions"].push_back({{"id", s.Id},
                                     {"consumer", s.Consumer},
                                     {"seconds_left", std::chrono::duration<double>(s.Until - now).count()}});
  return json;
}
