// Operations on a camera's encoders and the user's stream settings.
#include "controller/core/operations.h"
#include "controller/site/config_report.h"
#include "controller/site/stream_change.h"
#include "controller/terminal/report.h"

#include <nlohmann/json.hpp>

using nlohmann::json;
using Clock = std::chrono::steady_clock;

namespace {

bool ListArgument(const json& request, RTSP_PROFILE_TYPE* list, std::string* error) {
  const std::string name = TextArgument(request, "list");
  for (const RTSP_PROFILE_TYPE one : {RTSP_PROFILE_H264, RTSP_PROFILE_JPEG})
    if (name == ListName(one)) {
      *list = one;
      return true;
    }
  *error = "the list is jpeg or h264";
  return false;
}

// The camera of the request and its configuration. Null with a reason.
CCamera* CameraWithConfig(const CRunningSite& site, const json& request, CCameraConfig* config,
                          std::string* error) {
  CCamera* camera = CameraInService(site, request, error);
  if (camera == nullptr || camera->Config(config)) return camera;
  *error = camera->Video()->Name().Str() + " gives no configuration";
  return nullptr;
}

const char* StateName(EStreamState state) {
  static constexpr const char* names[] = {"being applied", "as wanted", "refused by the camera"};
  return names[static_cast<int>(state)];
}

CAnswer Encoders(CRunningSite& site, const json& request) {
  CCameraConfig config;
  std::string error, text;
  if (CameraWithConfig(site, request, &config, &error) == nullptr) return Refused(error);
  AddEncoders(config, &text);
  return Ready({{"profiles", ProfilesJSON(config)}, {"encoders", EncodersJSON(config)}, {"text", text}});
}

CAnswer Streams(CRunningSite& site, const json& request) {
  CCameraConfig config;
  std::string error, text;
  const CCamera* camera = CameraWithConfig(site, request, &config, &error);
  if (camera == nullptr) return Refused(error);
  json streams = json::array();
  AddStreams(config, &text);
  for (const RTSP_PROFILE_TYPE list : {RTSP_PROFILE_H264, RTSP_PROFILE_JPEG})
    for (size_t i = 0; i < config.UserStreams(list).Streams.size(); ++i) {
      const std::string state = StateName(camera->StreamState(list, static_cast<int>(i)));
      streams.push_back(StreamJSON(list, i + 1, config.UserStreams(list).Streams[i]));
      streams.back()["state"] = state;
      text += std::string(ListName(list)) + " " + std::to_string(i + 1) + " is " + state + "\n";
    }
  return Ready({{"streams", std::move(streams)}, {"text", text}});
}

// A change that has been given to the camera: what was wanted, and how it goes.
struct CChangeUnderWay {
  const CRunningSite* Site;
  int CameraID;  // it may be removed meanwhile
  RTSP_PROFILE_TYPE List;
  size_t Number;
  CUserStream Wanted;
  Clock::time_point End;
  bool RateAlone;  // only the frame rate differs from what the encoder ran; the driver does not ask for that

  std::string Name() const { return std::string(ListName(List)) + " " + std::to_string(Number); }
};

// {"bitrate": {"wanted": 1000, "camera": 1024}, ...}
json Differences(const CStreamSettings& wanted, const CStreamSettings& current) {
  json differences = json::object();
  const json a = SettingsJSON(wanted), b = SettingsJSON(current);
  for (const auto& [key, value] : a.items())
    if (b.value(key, json()) != value) differences[key] = {{"wanted", value}, {"camera", b.value(key, json())}};
  return differences;
}

std::string DifferencesText(const json& differences) {
  std::string text;
  for (const auto& [key, values] : differences.items())
    text += Printable("  " + key + " " + values["wanted"].dump() + " didn't stick, the camera has " +
                      values["camera"].dump()) +
            "\n";
  return text;
}

const CStreamSettings* EncoderSettings(const CCameraConfig& config, const std::string& token) {
  for (const CConfigEncoder& encoder : config.Encoders)
    if (encoder.Token == token) return &encoder.Settings;
  return nullptr;
}

// Whether the two differ in the frame rate alone.
bool DifferInRateAlone(const CStreamSettings& wanted, const CStreamSettings& current) {
  CStreamSettings same = current;
  same.FrameRate = wanted.FrameRate;
  if (wanted.H264Profile == H264_PROFILE_ANY) same.H264Profile = H264_PROFILE_ANY;
  return same == wanted && current.FrameRate != wanted.FrameRate;
}

json NotTaken(const CChangeUnderWay& change, const CCameraConfig& config, const std::string& why) {
  json answer = RefusedJSON(why);
  if (const CStreamSettings* current = EncoderSettings(config, change.Wanted.EncoderToken)) {
    answer["differences"] = Differences(change.Wanted.Settings, *current);
    answer["text"] = DifferencesText(answer["differences"]);
  }
  return answer;
}

// What the encoder was read back to run is what the camera has taken.
json Taken(const CChangeUnderWay& change, const CCameraConfig& config) {
  const CUserStream& now = config.UserStreams(change.List).Streams[change.Number - 1];
  const CStreamSettings* current = EncoderSettings(config, change.Wanted.EncoderToken);
  if (current != nullptr && change.RateAlone && DifferInRateAlone(change.Wanted.Settings, *current))
    return NotTaken(change, config,
                    "the camera was not asked: a frame rate goes to it only together with another change of " +
                        change.Name() + " (size, quality, bit rate, interval or key frame distance)");
  json differences = Differences(change.Wanted.Settings, current != nullptr ? *current : now.Settings);
  const std::string text =
      Printable("the camera has taken " + change.Name() + ": " + SettingsText(now.Settings)) + "\n" +
      DifferencesText(differences);
  return {{"ok", true},
          {"stream", StreamJSON(change.List, change.Number, now)},
          {"differences", std::move(differences)},
          {"text", text}};
}

json Outcome(const CChangeUnderWay& change) {
  CCameraConfig config;
  const CCamera* const camera = change.Site->ByID(change.CameraID);
  if (camera == nullptr) return RefusedJSON("the camera has been removed");
  const EStreamState state = camera->StreamState(change.List, static_cast<int>(change.Number) - 1);
  if (state == EStreamState::Asking && Clock::now() < change.End) return nullptr;
  if (!camera->Config(&config) || config.UserStreams(change.List).Streams.size() < change.Number)
    return RefusedJSON("the settings have been changed by somebody else meanwhile");
  if (state == EStreamState::Ready) return Taken(change, config);
  return NotTaken(
      change, config,
      (state == EStreamState::Refused ? "the camera does not take " + change.Name()
                                      : "the camera has not confirmed " + change.Name() + " in time") +
          "; it is asked again every 5 s");
}

CAnswer SetStream(CRunningSite& site, const json& request) {
  CCameraConfig config;
  CChangeUnderWay change{};
  std::string error;
  CCamera* const camera = CameraWithConfig(site, request, &config, &error);
  change.Number = static_cast<size_t>(std::max(NumberArgument(request, "number"), 0));
  if (camera == nullptr || !ListArgument(request, &change.List, &error) ||
      !ChangeStream(&config, change.List, change.Number, request, &error))
    return Refused(error);
  change.Wanted = config.UserStreams(change.List).Streams[change.Number - 1];
  const CStreamSettings* current = EncoderSettings(config, change.Wanted.EncoderToken);
  change.RateAlone = current != nullptr && DifferInRateAlone(change.Wanted.Settings, *current);
  change.End = Clock::now() + CCamera::APPLIED_WITHIN;
  camera->ApplyStreams(config);
  change.Site = &site;
  change.CameraID = camera->ID();
  return [change] { return Outcome(change); };
}

CAnswer DropStream(CRunningSite& site, const json& request) {
  CCameraConfig config;
  RTSP_PROFILE_TYPE list{};
  std::string error;
  CCamera* camera = CameraWithConfig(site, request, &config, &error);
  const auto number = static_cast<size_t>(std::max(NumberArgument(request, "number"), 0));
  if (camera == nullptr || !ListArgument(request, &list, &error) ||
      !RemoveStream(&config, list, number, &error))
    return Refused(error);
  camera->ApplyStreams(config);
  return Ready({{"text", std::string(ListName(list)) + " " + std::to_string(number) + " is removed\n"}});
}

constexpr COperation OPERATIONS[] = {
    {"encoders", Encoders},
    {"streams", Streams},
    {"set-stream", SetStream},
    {"remove-stream", DropStream},
};

}  // namespace

std::span<const COperation> StreamOperations() {
  return OPERATIONS;
}
