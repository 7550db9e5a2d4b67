#include "sim/model.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace {

constexpr size_t kRecentRequests = 64;

template <typename T>
T* ByToken(std::vector<T>& items, const std::string& token) {
  const auto found =
      std::find_if(items.begin(), items.end(), [&](const T& item) { return item.token == token; });
  return found == items.end() ? nullptr : &*found;
}

nlohmann::json EncoderToJson(const CVideoEncoder& e) {
  return {{"token", e.token},
          {"name", e.name},
          {"encoding", e.encoding},
          {"width", e.width},
          {"height", e.height},
          {"quality", e.quality},
          {"fps", e.frameRate},
          {"interval", e.interval},
          {"bitrate_kbit", e.bitrate},
          {"gov", e.govLength},
          {"h264_profile", e.h264Profile},
          {"changes", e.changes}};
}

nlohmann::json StreamToJson(const CStreamCount& count) {
  nlohmann::json json = {
      {"sessions", count.sessions}, {"next", count.next}, {"first", nullptr}, {"last", nullptr}};
  if (count.first) json["first"] = *count.first;
  if (count.last) json["last"] = *count.last;
  return json;
}

nlohmann::json PositionToJson(const CPtzVector& p) {
  return {{"pan", p.pan}, {"tilt", p.tilt}, {"zoom", p.zoom}};
}

}  // namespace

CVideoEncoder* CCameraModel::EncoderByToken(const std::string& token) {
  return ByToken(encoders, token);
}
CSimProfile* CCameraModel::ProfileByToken(const std::string& token) {
  return ByToken(profiles, token);
}
CPreset* CCameraModel::PresetByToken(const std::string& token) {
  return ByToken(presets, token);
}

std::string CCameraModel::HttpBase() const {
  return "http://" + address + ":" + std::to_string(httpPort);
}

std::string CCameraModel::StreamUri(const CSimProfile& profile) const {
  return "rtsp://" + address + ":" + std::to_string(rtspPort) + profile.rtspPath;
}

std::chrono::system_clock::time_point CCameraModel::Clock() const {
  return std::chrono::system_clock::now() + std::chrono::seconds(quirks.clockOffset);
}

void CCameraModel::Note(const std::string& operation, const std::string& outcome) {
  ++requests[operation];
  recent.push_back(operation + " " + outcome);
  if (recent.size() > kRecentRequests) recent.pop_front();
}

void CCameraModel::DropLapsed() {
  const auto now = std::chrono::steady_clock::now();
  std::erase_if(subscriptions, [&](const CSubscription& s) { return s.until <= now; });
}

nlohmann::json CCameraModel::ToJson() {
  const auto now = CPtzHead::Clock::now();
  DropLapsed();
  nlohmann::json json = {{"name", identity.name},
                         {"kind", identity.kind},
                         {"manufacturer", identity.manufacturer},
                         {"model", identity.model},
                         {"serial", identity.serial},
                         {"hardware_id", identity.hardwareId},
                         {"address", address},
                         {"service_url", HttpBase() + "/onvif/device_service"},
                         {"powered", powered},
                         {"quirks", QuirksToJson(quirks)},
                         {"requests", requests},
                         {"recent", recent},
                         {"auth_failures", authFailures},
                         {"ptz", PositionToJson(head.Position(now))}};
  json["microphone"] = {{"tone_hz", microphone.toneHz}, {"level", microphone.level}, {"file", microphone.file}};
  json["ptz"]["moving"] = head.MovingPanTilt(now) || head.MovingZoom(now);
  json["ptz"]["moves"] = ptzCount.moves;
  json["ptz"]["zooms"] = ptzCount.zooms;
  json["ptz"]["stops"] = ptzCount.stops;
  json["ptz"]["presets_recalled"] = ptzCount.recalled;
  json["ptz"]["presets_stored"] = ptzCount.stored;
  json["ptz"]["last_preset"] = ptzCount.lastPreset;
  json["motion"] = motion;
  json["notifications"] = {{"pending", notifications.pending},
                           {"sent", notifications.sent},
                           {"accepted", notifications.accepted},
                           {"failed", notifications.failed}};
  json["alarm"] = alarm;
  json["alarms_sent"] = alarmsSent;
  json["presets"] = nlohmann::json::array();
  for (const CPreset& preset : presets)
    json["presets"].push_back(
        {{"token", preset.token}, {"name", preset.name}, {"at", PositionToJson(preset.position)}});
  json["encoders"] = nlohmann::json::array();
  for (const CVideoEncoder& encoder : encoders) json["encoders"].push_back(EncoderToJson(encoder));
  json["profiles"] = nlohmann::json::array();
  for (const CSimProfile& profile : profiles)
    json["profiles"].push_back({{"token", profile.token},
                                {"name", profile.name},
                                {"encoder", profile.videoEncoder},
                                {"stream_uri", StreamUri(profile)},
                                {"stream", StreamToJson(streams[profile.token])}});
  json["subscriptions"] = nlohmann::json::array();
  for (const CSubscription& s : subscriptions)
    json["subscriptions"].push_back({{"id", s.id},
                                     {"consumer", s.consumer},
                                     {"seconds_left", std::chrono::duration<double>(s.until - now).count()}});
  return json;
}
