// controller show: loads cameras one after the other and prints what each is and offers.
#include "controller/camera.h"
#include "controller/commands.h"
#include "controller/controller.h"
#include "controller/log.h"
#include "controller/profile_request.h"
#include "controller/report.h"
#include "controller/stop_signal.h"
#include "host/intercom.h"
#include "host/system.h"

#include <chrono>
#include <nlohmann/json.hpp>

using nlohmann::json;
using Clock = std::chrono::steady_clock;

namespace {

constexpr unsigned PASS_PERIOD_MS = 10;

struct COptionBit {
  unsigned Bit;
  const char* Name;
};
constexpr COptionBit OPTION_BITS[] = {{VIDEO_OPTION_PAN_TILT, "pan and tilt"},
                                      {VIDEO_OPTION_ZOOM, "zoom"},
                                      {VIDEO_OPTION_PRESETS, "presets"},
                                      {VIDEO_OPTION_CONTINUOUS_MOVE, "continuous move"},
                                      {VIDEO_OPTION_AUDIO, "audio"}};

CVideoSystem* FindCamera(const std::string& wanted) {
  CSystem* system = CSystem::Instance();
  for (int i = 0; i < system->NVideo(); ++i) {
    CVideoSystem* video = system->VideoSystem(i);
    if (video->Name().Str() == wanted || std::to_string(video->ID()) == wanted ||
        video->GetConfigURL().Str() == wanted)
      return video;
  }
  return nullptr;
}

// Works the main thread until `done` says so. False when the time is up or a stop signal came.
template <class Done>
bool WorkUntil(Clock::time_point end, Done done) {
  while (Clock::now() < end && !WaitForStop(PASS_PERIOD_MS)) {
    CSystem::Instance()->MainThreadPass();
    const CMainThreadLock lock;
    if (done()) return true;
  }
  return false;
}

std::string Hex(const unsigned char* data, int length) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (int i = 0; i < length; ++i) {
    text += digits[data[i] >> 4];
    text += digits[data[i] & 15];
  }
  return text;
}

json RangeJSON(const GXT_RANGE& range) {
  return {range.Min, range.Max};
}

json SizeJSON(const GXT_RESOLUTION& size) {
  return std::to_string(size.Width) + "x" + std::to_string(size.Height);
}

json SettingsJSON(const CStreamSettings& s) {
  json settings = {{"encoding", s.Encoding},    {"size", SizeJSON(s.Size)}, {"quality", s.Quality},
                   {"frame_rate", s.FrameRate}, {"bitrate", s.Bitrate},     {"gov_length", s.GovLength},
                   {"interval", s.Interval}};
  if (*H264ProfileName(s.H264Profile) != '\0') settings["h264_profile"] = H264ProfileName(s.H264Profile);
  return settings;
}

json OptionsJSON(const CConfigOptions& o) {
  json sizes = json::array(), profiles = json::array();
  for (const GXT_RESOLUTION& size : o.Sizes) sizes.push_back(SizeJSON(size));
  for (const int code : o.H264Profiles) profiles.push_back(H264ProfileName(code));
  return {{"sizes", sizes},
          {"frame_rate", RangeJSON(o.FrameRate)},
          {"bitrate", RangeJSON(o.Bitrate)},
          {"gov_length", RangeJSON(o.GovLength)},
          {"interval", RangeJSON(o.Interval)},
          {"h264_profiles", profiles}};
}

json ConfigJSON(const CCameraConfig& config) {
  json profiles = json::array(), encoders = json::array(), streams = json::array();
  for (const CConfigProfile& p : config.Profiles)
    profiles.push_back({{"name", p.Name}, {"token", p.Token}, {"settings", SettingsJSON(p.Settings)}});
  for (const CConfigEncoder& e : config.Encoders) {
    json encoder = {{"name", e.Name},
                    {"token", e.Token},
                    {"quality", RangeJSON(e.Quality)},
                    {"settings", SettingsJSON(e.Settings)}};
    if (!e.JPEG.Sizes.empty()) encoder["jpeg"] = OptionsJSON(e.JPEG);
    if (!e.H264.Sizes.empty()) encoder["h264"] = OptionsJSON(e.H264);
    encoders.push_back(std::move(encoder));
  }
  for (const auto& [list, kind] : {std::pair(&config.H264, "h264"), std::pair(&config.JPEG, "jpeg")})
    for (const CUserStream& s : list->Streams)
      streams.push_back({{"list", kind},
                         {"name", s.Name},
                         {"profile", s.ProfileToken},
                         {"encoder", s.EncoderToken},
                         {"transport", s.Transport == RTP_TRANSPORT_TCP ? "tcp" : "udp"},
                         {"settings", SettingsJSON(s.Settings)}});
  return {{"profiles", profiles}, {"encoders", encoders}, {"user_streams", streams}};
}

// How each stream is opened. Streams that the camera cannot be made ready for in time are left out.
json OpenJSON(CVideoSystem* video, Clock::time_point end) {
  json list = json::array();
  for (const RTSP_PROFILE_TYPE type : {RTSP_PROFILE_H264, RTSP_PROFILE_JPEG})
    for (int i = 0; i < video->NResolutions(type); ++i) {
      CProfileRequest request(video, type, i);
      std::unique_ptr<CRTSPProfile> profile;
      if (!WorkUntil(end, [&] { return (profile = request.Poll()) != nullptr; })) continue;
      list.push_back({{"list", type == RTSP_PROFILE_H264 ? "h264" : "jpeg"},
                      {"url", profile->URL().Str()},
                      {"control_url", profile->ControlURL().Str()},
                      {"rtp_payload_type", profile->FormatTag()},
                      {"parameter_sets", Hex(profile->StartupData(), profile->NStartupData())}});
    }
  return list;
}

json CameraJSON(CVideoSystem* video, CTraceBook* book, Clock::time_point end) {
  CCamera camera(video, book, {});
  camera.Start();
  const bool loaded = WorkUntil(end, [video] {
    return CIntercomServer::Instance()->HasClient(video->GetIcomClient(ICOM_CLIENT_SELF)) &&
           video->NResolutions(RTSP_PROFILE_H264) + video->NResolutions(RTSP_PROFILE_JPEG) > 0;
  });
  CCameraStatus status;
  {
    const CMainThreadLock lock;
    camera.Tick();
    status = camera.Status();
  }
  json result = json::parse(SummaryText({status}))["cameras"][0];
  result["user"] = video->UserName().Str();
  CGXMSG msg;
  CCameraConfig config;
  video->GetONVIFConfig(&msg);
  if (ReadCameraConfig(msg, &config)) result.update(ConfigJSON(config));
  result["options"] = json::array();
  for (const COptionBit& option : OPTION_BITS)
    if ((video->Options() & option.Bit) != 0) result["options"].push_back(option.Name);
  if (loaded) result["open"] = OpenJSON(video, end);
  return result;
}

// The same tree for people: one line a value, indented, lists of plain values on one line.
void Print(const json& value, const std::string& indent, std::string* text) {
  for (const auto& [key, entry] : value.items()) {
    const bool nested = entry.is_object() || (entry.is_array() && !entry.empty() && entry[0].is_structured());
    if (nested && entry.is_array()) {
      for (const json& element : entry) {
        *text += indent + key + "\n";
        Print(element, indent + "  ", text);
      }
    } else if (nested) {
      *text += indent + key + "\n";
      Print(entry, indent + "  ", text);
    } else {
      const std::string plain = entry.is_string() ? entry.get<std::string>()
                                                  : entry.dump(-1, ' ', false, json::error_handler_t::replace);
      *text += indent + key + ": " + Printable(plain) + "\n";
    }
  }
}

}  // namespace

int ShowCommand(const COptions& options) {
  CPlugin plugin;
  std::string error;
  CTraceBook book;
  if (!PrepareDriver(options, &plugin, &error)) {
    WriteProblem(error);
    return 1;
  }
  CSiteKeeper site(&plugin, options.SiteFile);
  int code = site.Load(&error) ? 0 : 1;
  json cameras = json::array();
  for (const std::string& wanted : options.Cameras) {
    if (code != 0 || StopRequested()) break;
    CVideoSystem* video = FindCamera(wanted);
    if (video == nullptr && CheckServiceURL(wanted, &error))
      video = site.Install(wanted, options.User, options.Password, &error);
    else if (video == nullptr)
      error = "no camera '" + wanted + "' in " + options.SiteFile + ", and not a service URL either";
    if (video == nullptr) {
      code = 1;
      break;
    }
    const auto wait =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.WaitSeconds));
    cameras.push_back(CameraJSON(video, &book, Clock::now() + wait));
  }
  CSystem::Instance()->RemoveAllComponents();
  if (code != 0) WriteProblem(error);
  std::string text;
  if (options.JSON)
    text = json{{"cameras", cameras}}.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
  else
    for (const json& camera : cameras) Print(camera, "", &(text += text.empty() ? "" : "\n"));
  WriteResult(text);
  return code;
}
