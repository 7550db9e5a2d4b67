#include "controller/show_report.h"

#include "controller/report.h"
#include "host/video.h"

#include <nlohmann/json.hpp>

using nlohmann::json;
using Rows = std::vector<std::vector<std::string>>;

namespace {

struct COptionBit {
  unsigned Bit;
  const char* Name;
};
constexpr COptionBit OPTION_BITS[] = {{VIDEO_OPTION_PAN_TILT, "pan and tilt"},
                                      {VIDEO_OPTION_ZOOM, "zoom"},
                                      {VIDEO_OPTION_PRESETS, "presets"},
                                      {VIDEO_OPTION_CONTINUOUS_MOVE, "continuous move"},
                                      {VIDEO_OPTION_AUDIO, "audio"}};

const char* ListName(RTSP_PROFILE_TYPE type) {
  return type == RTSP_PROFILE_H264 ? "h264" : "jpeg";
}

const char* TransportName(int transport) {
  return transport == RTP_TRANSPORT_TCP ? "tcp" : "udp";
}

std::string SizeText(const GXT_RESOLUTION& size) {
  return std::to_string(size.Width) + "x" + std::to_string(size.Height);
}

std::string RangeText(const GXT_RANGE& range) {
  return std::to_string(range.Min) + ".." + std::to_string(range.Max);
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

std::vector<std::string> OptionNames(unsigned options) {
  std::vector<std::string> names;
  for (const COptionBit& option : OPTION_BITS)
    if ((options & option.Bit) != 0) names.emplace_back(option.Name);
  return names;
}

// ---- For people ----

std::string SettingsText(const CStreamSettings& s) {
  std::string text = s.Encoding + " " + SizeText(s.Size) + " " + std::to_string(s.FrameRate) + " fps " +
                     std::to_string(s.Bitrate) + " kbit/s quality " + std::to_string(s.Quality);
  if (s.GovLength > 0) text += " key frame every " + std::to_string(s.GovLength);
  return *H264ProfileName(s.H264Profile) != '\0' ? text + " " + H264ProfileName(s.H264Profile) : text;
}

std::string OptionsText(const CConfigOptions& o) {
  std::string text;
  for (const GXT_RESOLUTION& size : o.Sizes) text += SizeText(size) + " ";
  text += RangeText(o.FrameRate) + " fps " + RangeText(o.Bitrate) + " kbit/s";
  for (const int code : o.H264Profiles) text += std::string(" ") + H264ProfileName(code);
  return text;
}

void AddTable(const char* title, Rows rows, std::string* text) {
  if (rows.size() < 2) return;
  for (auto& row : rows)
    for (std::string& cell : row) cell = Printable(cell);
  *text += std::string("\n") + title + "\n" + Table(rows);
}

void AddConfig(const CCameraConfig& config, std::string* text) {
  Rows profiles(1, {"Token", "Name", "Settings"}), encoders(1, {"Token", "Name", "Can do"});
  for (const CConfigProfile& p : config.Profiles)
    profiles.push_back({p.Token, p.Name, SettingsText(p.Settings)});
  for (const CConfigEncoder& e : config.Encoders) {
    encoders.push_back({e.Token, e.Name, "at present " + SettingsText(e.Settings)});
    if (!e.H264.Sizes.empty()) encoders.push_back({"", "", "H264 " + OptionsText(e.H264)});
    if (!e.JPEG.Sizes.empty()) encoders.push_back({"", "", "JPEG " + OptionsText(e.JPEG)});
  }
  Rows streams(1, {"List", "Name", "Profile", "Encoder", "Transport", "Settings"});
  for (const RTSP_PROFILE_TYPE type : {RTSP_PROFILE_H264, RTSP_PROFILE_JPEG})
    for (const CUserStream& s : (type == RTSP_PROFILE_H264 ? config.H264 : config.JPEG).Streams)
      streams.push_back({ListName(type), s.Name, s.ProfileToken, s.EncoderToken, TransportName(s.Transport),
                         SettingsText(s.Settings)});
  AddTable("Profiles", std::move(profiles), text);
  AddTable("Encoders", std::move(encoders), text);
  AddTable("Streams as the user wants them", std::move(streams), text);
}

std::string SheetText(const CCameraSheet& sheet) {
  const CCameraStatus& s = sheet.Status;
  std::string text = s.Name + " (id " + std::to_string(s.ID) + ", type " + std::to_string(s.Type) +
                     "): " + s.State + (s.Reason.empty() ? "" : ": " + s.Reason);
  text = Printable(text) + "\n";
  text +=
      Printable("  " + s.Manufacturer + " " + s.Model + ", serial " + s.Serial + ", firmware " + s.Firmware) +
      "\n";
  text += Printable("  " + s.ServiceURL + ", user " + (sheet.User.empty() ? "(none)" : sheet.User)) + "\n";
  std::string offers;
  for (const std::string& name : OptionNames(sheet.Options)) offers += (offers.empty() ? "" : ", ") + name;
  text += "  offers " + (offers.empty() ? "pictures only" : offers) + "\n";
  AddConfig(sheet.Config, &text);
  Rows accesses(1, {"List", "URL", "Control URL", "RTP type", "Parameter sets"});
  for (const CStreamAccess& access : sheet.Accesses) {
    const CRTSPProfile& p = *access.Profile;
    accesses.push_back({ListName(access.List), p.URL().Str(), p.ControlURL().Str(),
                        std::to_string(p.FormatTag()), Hex(p.StartupData(), p.NStartupData())});
  }
  AddTable("How the streams are opened", std::move(accesses), &text);
  if (s.State != "running") {
    text += "\nTrace\n";
    for (const std::string& line : s.Steps) text += Printable("  " + line) + "\n";
  }
  return text;
}

// ---- For programs ----

json RangeJSON(const GXT_RANGE& range) {
  return {range.Min, range.Max};
}

json SettingsJSON(const CStreamSettings& s) {
  json settings = {{"encoding", s.Encoding},    {"size", SizeText(s.Size)}, {"quality", s.Quality},
                   {"frame_rate", s.FrameRate}, {"bitrate", s.Bitrate},     {"gov_length", s.GovLength},
                   {"interval", s.Interval}};
  if (*H264ProfileName(s.H264Profile) != '\0') settings["h264_profile"] = H264ProfileName(s.H264Profile);
  return settings;
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

void AddConfigJSON(const CCameraConfig& config, json* camera) {
  json profiles = json::array(), encoders = json::array(), streams = json::array();
  for (const CConfigProfile& p : config.Profiles)
    profiles.push_back({{"name", p.Name}, {"token", p.Token}, {"settings", SettingsJSON(p.Settings)}});
  for (const CConfigEncoder& e : config.Encoders)
    encoders.push_back({{"name", e.Name},
                        {"token", e.Token},
                        {"quality", RangeJSON(e.Quality)},
                        {"settings", SettingsJSON(e.Settings)},
                        {"jpeg", OptionsJSON(e.JPEG)},
                        {"h264", OptionsJSON(e.H264)}});
  for (const RTSP_PROFILE_TYPE type : {RTSP_PROFILE_H264, RTSP_PROFILE_JPEG})
    for (const CUserStream& s : (type == RTSP_PROFILE_H264 ? config.H264 : config.JPEG).Streams)
      streams.push_back({{"list", ListName(type)},
                         {"name", s.Name},
                         {"profile", s.ProfileToken},
                         {"encoder", s.EncoderToken},
                         {"transport", TransportName(s.Transport)},
                         {"settings", SettingsJSON(s.Settings)}});
  (*camera)["profiles"] = std::move(profiles);
  (*camera)["encoders"] = std::move(encoders);
  (*camera)["user_streams"] = std::move(streams);
}

json SheetJSON(const CCameraSheet& sheet) {
  const CCameraStatus& s = sheet.Status;
  json accesses = json::array();
  for (const CStreamAccess& access : sheet.Accesses) {
    const CRTSPProfile& p = *access.Profile;
    accesses.push_back({{"list", ListName(access.List)},
                        {"url", p.URL().Str()},
                        {"control_url", p.ControlURL().Str()},
                        {"rtp_payload_type", p.FormatTag()},
                        {"parameter_sets", Hex(p.StartupData(), p.NStartupData())}});
  }
  json camera = {{"name", s.Name},
                 {"id", s.ID},
                 {"type", s.Type},
                 {"manufacturer", s.Manufacturer},
                 {"model", s.Model},
                 {"serial", s.Serial},
                 {"firmware", s.Firmware},
                 {"service_url", s.ServiceURL},
                 {"user", sheet.User},
                 {"state", s.State},
                 {"reason", s.Reason},
                 {"steps", s.Steps},
                 {"offers", OptionNames(sheet.Options)},
                 {"opened_by", std::move(accesses)}};
  AddConfigJSON(sheet.Config, &camera);
  return camera;
}

}  // namespace

std::string SheetsText(const std::vector<CCameraSheet>& sheets) {
  std::string text;
  for (const CCameraSheet& sheet : sheets) text += (text.empty() ? "" : "\n\n") + SheetText(sheet);
  return text;
}

std::string SheetsJSON(const std::vector<CCameraSheet>& sheets) {
  json list = json::array();
  for (const CCameraSheet& sheet : sheets) list.push_back(SheetJSON(sheet));
  return json{{"cameras", std::move(list)}}.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}
