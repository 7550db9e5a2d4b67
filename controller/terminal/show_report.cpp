#include "controller/terminal/show_report.h"

#include "controller/site/config_report.h"
#include "controller/terminal/report.h"
#include "host/video/video.h"

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
  // What it can do is not known before it is loaded.
  if (s.State.starts_with("running")) text += "  offers " + (offers.empty() ? "pictures only" : offers) + "\n";
  AddEncoders(sheet.Config, &text);
  AddStreams(sheet.Config, &text);
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
                 {"offers", OptionNames(s.State.starts_with("running") ? sheet.Options : 0)},
                 {"opened_by", std::move(accesses)}};
  camera["profiles"] = ProfilesJSON(sheet.Config);
  camera["encoders"] = EncodersJSON(sheet.Config);
  camera["user_streams"] = StreamsJSON(sheet.Config);
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
