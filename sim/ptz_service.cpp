// The ONVIF PTZ service (version 2) of cameras that can move.
#include "sim/services.h"
#include "sim/view.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

namespace {

using Clock = CPtzHead::Clock;

constexpr char kSpaces[] = "http://www.onvif.org/ver10/tptz/";
constexpr char kAbsPanTilt[] = "PanTiltSpaces/PositionGenericSpace",
               kAbsZoom[] = "ZoomSpaces/PositionGenericSpace";
constexpr char kRelPanTilt[] = "PanTiltSpaces/TranslationGenericSpace";
constexpr char kRelFov[] = "PanTiltSpaces/TranslationSpaceFov",
               kRelZoom[] = "ZoomSpaces/TranslationGenericSpace";
constexpr char kVelPanTilt[] = "PanTiltSpaces/VelocityGenericSpace",
               kVelZoom[] = "ZoomSpaces/VelocityGenericSpace";
constexpr char kNodeToken[] = "PTZNode_0", kConfigToken[] = "PTZConfig_0";
constexpr size_t kMostPresets = 32;
constexpr std::chrono::seconds kDefaultTimeout{10};  // a move without Stop ends after this

std::string Space(const char* path) {
  return std::string(kSpaces) + path;
}

void AddRange(pugi::xml_node parent, const char* name, const char* from, const char* to) {
  pugi::xml_node node = Add(parent, name);
  Add(node, "tt:Min", from);
  Add(node, "tt:Max", to);
}

void AddSpace2D(pugi::xml_node parent, const char* name, const char* space) {
  pugi::xml_node node = Add(parent, name);
  Add(node, "tt:URI", Space(space));
  AddRange(node, "tt:XRange", "-1.0", "1.0");
  AddRange(node, "tt:YRange", "-1.0", "1.0");
}

void AddSpace1D(pugi::xml_node parent, const char* name, const char* space, const char* from) {
  pugi::xml_node node = Add(parent, name);
  Add(node, "tt:URI", Space(space));
  AddRange(node, "tt:XRange", from, "1.0");
}

void AddSpaces(pugi::xml_node parent, const char* name) {
  pugi::xml_node node = Add(parent, name);
  AddSpace2D(node, "tt:AbsolutePanTiltPositionSpace", kAbsPanTilt);
  AddSpace1D(node, "tt:AbsoluteZoomPositionSpace", kAbsZoom, "0.0");
  AddSpace2D(node, "tt:RelativePanTiltTranslationSpace", kRelPanTilt);
  AddSpace2D(node, "tt:RelativePanTiltTranslationSpace", kRelFov);
  AddSpace1D(node, "tt:RelativeZoomTranslationSpace", kRelZoom, "-1.0");
  AddSpace2D(node, "tt:ContinuousPanTiltVelocitySpace", kVelPanTilt);
  AddSpace1D(node, "tt:ContinuousZoomVelocitySpace", kVelZoom, "-1.0");
}

// The profile that a request names, when it can move.
COutcome FindProfile(CCall& call) {
  const CSimProfile* profile = call.model.ProfileByToken(Text(call.in, "ProfileToken"));
  if (profile == nullptr) return InvalidArgument("ter:NoProfile", "The requested profile token does not exist");
  if (!profile->ptz) return InvalidArgument("ter:NoPTZProfile", "The profile has no PTZ configuration");
  return {};
}

CFault NoPreset() {
  return InvalidArgument("ter:NoToken", "The requested preset token does not exist");
}

double Value(const pugi::xml_node& element, const char* attribute) {
  const double value = element.attribute(attribute).as_double();
  return std::clamp(value, -1.0, 1.0);
}

COutcome GetNodes(CCall& call) {
  const bool one = LocalName(call.in) == "GetNode";
  if (one && Text(call.in, "NodeToken") != kNodeToken)
    return InvalidArgument("ter:NoEntity", "No such PTZ node");
  pugi::xml_node node = Attr(Add(call.out, "tptz:PTZNode"), "token", kNodeToken);
  Add(node, "tt:Name", "Dome");
  AddSpaces(node, "tt:SupportedPTZSpaces");
  Add(node, "tt:MaximumNumberOfPresets", static_cast<int>(kMostPresets));
  Add(node, "tt:HomeSupported", "false");
  return {};
}

COutcome GetConfigurations(CCall& call) {
  AddPtzConfiguration(call.model, call.out, "tptz:PTZConfiguration");
  return {};
}

COutcome GetConfigurationOptions(CCall& call) {
  pugi::xml_node options = Add(call.out, "tptz:PTZConfigurationOptions");
  AddSpaces(options, "tt:Spaces");
  AddRange(options, "tt:PTZTimeout", "PT1S", "PT60S");
  return {};
}

void AddVector(pugi::xml_node parent, const char* name, const CPtzVector& at) {
  pugi::xml_node node = Add(parent, name);
  pugi::xml_node panTilt = Attr(Add(node, "tt:PanTilt"), "x", std::to_string(at.pan));
  Attr(Attr(panTilt, "y", std::to_string(at.tilt)), "space", Space(kAbsPanTilt));
  Attr(Attr(Add(node, "tt:Zoom"), "x", std::to_string(at.zoom)), "space", Space(kAbsZoom));
}

COutcome GetPresets(CCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  for (const CPreset& preset : call.model.presets) {
    pugi::xml_node node = Attr(Add(call.out, "tptz:Preset"), "token", preset.token);
    Add(node, "tt:Name", preset.name);
    AddVector(node, "tt:PTZPosition", preset.position);
  }
  return {};
}

COutcome SetPreset(CCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const std::string token = Text(call.in, "PresetToken"), name = Text(call.in, "PresetName");
  CPreset* preset = call.model.PresetByToken(token);
  if (preset == nullptr && !token.empty()) return NoPreset();
  if (preset == nullptr) {
    if (call.model.presets.size() >= kMostPresets)
      return CFault{500, "Receiver", "ter:Action", "ter:TooManyPresets", "Maximum number of presets reached"};
    const std::string number = std::to_string(call.model.nextPreset++);
    preset = &call.model.presets.emplace_back(CPreset{number, "Preset " + number, {}});
  }
  if (!name.empty()) preset->name = name;
  preset->position = call.model.head.Position(Clock::now());
  ++call.model.ptzCount.stored;
  Add(call.out, "tptz:PresetToken", preset->token);
  return {};
}

COutcome RemovePreset(CCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const std::string token = Text(call.in, "PresetToken");
  const auto gone =
      std::erase_if(call.model.presets, [&](const CPreset& preset) { return preset.token == token; });
  if (gone == 0) return NoPreset();
  return {};
}

COutcome GotoPreset(CCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const CPreset* preset = call.model.PresetByToken(Text(call.in, "PresetToken"));
  if (preset == nullptr) return NoPreset();
  call.model.head.MoveTo(preset->position, Clock::now());
  ++call.model.ptzCount.recalled;
  call.model.ptzCount.lastPreset = preset->token;
  return {};
}

void CountMove(CCall& call, const pugi::xml_node& panTilt, const pugi::xml_node& zoom) {
  if (panTilt) ++call.model.ptzCount.moves;
  if (zoom) ++call.model.ptzCount.zooms;
}

Clock::duration Timeout(const std::string& text) {
  const int seconds = text.starts_with("PT") && text.ends_with("S") ? std::atoi(text.c_str() + 2) : 0;
  return seconds > 0 ? std::chrono::seconds(seconds) : kDefaultTimeout;
}

COutcome ContinuousMove(CCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const pugi::xml_node panTilt = Child(call.in, "Velocity/PanTilt"), zoom = Child(call.in, "Velocity/Zoom");
  if (!panTilt && !zoom) return InvalidArgument("ter:InvalidVelocity", "Velocity is missing");
  call.model.head.Continuous({Value(panTilt, "x"), Value(panTilt, "y"), Value(zoom, "x")},
                             Timeout(Text(call.in, "Timeout")), Clock::now());
  CountMove(call, panTilt, zoom);
  return {};
}

COutcome RelativeMove(CCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const pugi::xml_node panTilt = Child(call.in, "Translation/PanTilt"),
                       zoom = Child(call.in, "Translation/Zoom");
  if (!panTilt && !zoom) return InvalidArgument("ter:InvalidTranslation", "Translation is missing");
  const std::string space = panTilt.attribute("space").value();
  const bool fov = space.empty() ? call.model.quirks.ptzSpace == "fov" : space == Space(kRelFov);
  CPtzVector to = call.model.head.Target(Clock::now());
  to.pan += Value(panTilt, "x") * (fov ? HalfViewPan(to.zoom) : 1);
  to.tilt += Value(panTilt, "y") * (fov ? HalfViewTilt(to.zoom) : 1);
  to.zoom += Value(zoom, "x");
  call.model.head.MoveTo(to, Clock::now());
  CountMove(call, panTilt, zoom);
  return {};
}

COutcome AbsoluteMove(CCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const pugi::xml_node panTilt = Child(call.in, "Position/PanTilt"), zoom = Child(call.in, "Position/Zoom");
  if (!panTilt && !zoom) return InvalidArgument("ter:InvalidPosition", "Position is missing");
  CPtzVector to = call.model.head.Target(Clock::now());
  if (panTilt) to.pan = Value(panTilt, "x");
  if (panTilt) to.tilt = Value(panTilt, "y");
  if (zoom) to.zoom = Value(zoom, "x");
  call.model.head.MoveTo(to, Clock::now());
  CountMove(call, panTilt, zoom);
  return {};
}

COutcome Stop(CCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  call.model.head.Stop(Text(call.in, "PanTilt") != "false", Text(call.in, "Zoom") != "false", Clock::now());
  ++call.model.ptzCount.stops;
  return {};
}

COutcome GetStatus(CCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const auto now = Clock::now();
  CPtzHead& head = call.model.head;
  pugi::xml_node status = Add(call.out, "tptz:PTZStatus");
  AddVector(status, "tt:Position", head.Position(now));
  pugi::xml_node moving = Add(status, "tt:MoveStatus");
  Add(moving, "tt:PanTilt", head.MovingPanTilt(now) ? "MOVING" : "IDLE");
  Add(moving, "tt:Zoom", head.MovingZoom(now) ? "MOVING" : "IDLE");
  Add(status, "tt:UtcTime", UtcText(call.model.Clock()));
  return {};
}

COutcome GetServiceCapabilities(CCall& call) {
  Attr(Attr(Add(call.out, "tptz:Capabilities"), "MoveStatus", "true"), "StatusPosition", "true");
  return {};
}

constexpr COperation kOperations[] = {
    {"GetServiceCapabilities", true, GetServiceCapabilities},
    {"GetNodes", false, GetNodes},
    {"GetNode", false, GetNodes},
    {"GetConfigurations", false, GetConfigurations},
    {"GetConfiguration", false, GetConfigurations},
    {"GetConfigurationOptions", false, GetConfigurationOptions},
    {"GetPresets", false, GetPresets},
    {"SetPreset", false, SetPreset},
    {"RemovePreset", false, RemovePreset},
    {"GotoPreset", false, GotoPreset},
    {"ContinuousMove", false, ContinuousMove},
    {"RelativeMove", false, RelativeMove},
    {"AbsoluteMove", false, AbsoluteMove},
    {"Stop", false, Stop},
    {"GetStatus", false, GetStatus},
};

}  // namespace

void AddPtzConfiguration(const CCameraModel& model, pugi::xml_node parent, const char* name) {
  pugi::xml_node node = Attr(Add(parent, name), "token", kConfigToken);
  Add(node, "tt:Name", "PTZConfig");
  Add(node, "tt:UseCount", static_cast<int>(model.profiles.size()));
  Add(node, "tt:NodeToken", kNodeToken);
  Add(node, "tt:DefaultAbsolutePantTiltPositionSpace", Space(kAbsPanTilt));  // sic, in the ONVIF schema
  Add(node, "tt:DefaultAbsoluteZoomPositionSpace", Space(kAbsZoom));
  Add(node, "tt:DefaultRelativePanTiltTranslationSpace",
      Space(model.quirks.ptzSpace == "fov" ? kRelFov : kRelPanTilt));
  Add(node, "tt:DefaultRelativeZoomTranslationSpace", Space(kRelZoom));
  Add(node, "tt:DefaultContinuousPanTiltVelocitySpace", Space(kVelPanTilt));
  Add(node, "tt:DefaultContinuousZoomVelocitySpace", Space(kVelZoom));
  Add(node, "tt:DefaultPTZTimeout", "PT10S");
  AddSpace2D(Add(node, "tt:PanTiltLimits"), "tt:Range", kAbsPanTilt);
  AddSpace1D(Add(node, "tt:ZoomLimits"), "tt:Range", kAbsZoom, "0.0");
}

const CService& PtzService() {
  static const CService g_service{ns::kPtz, "tptz", kOperations};
  return g_service;
}
