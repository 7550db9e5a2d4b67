// The ONVIF PTZ service (version 2) of cameras that can move.
#include "sim/services.h"
#include "sim/view.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

namespace {

using Clock = CPTZHead::Clock;

constexpr char SPACES[] = "http://www.onvif.org/ver10/tptz/";
constexpr char ABS_PAN_TILT[] = "PanTiltSpaces/PositionGenericSpace",
               ABS_ZOOM[] = "ZoomSpaces/PositionGenericSpace";
constexpr char REL_PAN_TILT[] = "PanTiltSpaces/TranslationGenericSpace";
constexpr char REL_FOV[] = "PanTiltSpaces/TranslationSpaceFov",
               REL_ZOOM[] = "ZoomSpaces/TranslationGenericSpace";
constexpr char VEL_PAN_TILT[] = "PanTiltSpaces/VelocityGenericSpace",
               VEL_ZOOM[] = "ZoomSpaces/VelocityGenericSpace";
constexpr char NODE_TOKEN[] = "PTZNode_0", CONFIG_TOKEN[] = "PTZConfig_0";
constexpr size_t MOST_PRESETS = 32;
constexpr std::chrono::seconds DEFAULT_TIMEOUT{10};  // a move without Stop ends after this

std::string Space(const char* path) {
  return std::string(SPACES) + path;
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
  AddSpace2D(node, "tt:AbsolutePanTiltPositionSpace", ABS_PAN_TILT);
  AddSpace1D(node, "tt:AbsoluteZoomPositionSpace", ABS_ZOOM, "0.0");
  AddSpace2D(node, "tt:RelativePanTiltTranslationSpace", REL_PAN_TILT);
  AddSpace2D(node, "tt:RelativePanTiltTranslationSpace", REL_FOV);
  AddSpace1D(node, "tt:RelativeZoomTranslationSpace", REL_ZOOM, "-1.0");
  AddSpace2D(node, "tt:ContinuousPanTiltVelocitySpace", VEL_PAN_TILT);
  AddSpace1D(node, "tt:ContinuousZoomVelocitySpace", VEL_ZOOM, "-1.0");
}

// The profile that a request names, when it can move.
COutcome FindProfile(CSOAPCall& call) {
  const CSimProfile* profile = call.Model.ProfileByToken(Text(call.In, "ProfileToken"));
  if (profile == nullptr) return InvalidArgument("ter:NoProfile", "The requested profile token does not exist");
  if (!profile->PTZ) return InvalidArgument("ter:NoPTZProfile", "The profile has no PTZ configuration");
  return {};
}

CFault NoPreset() {
  return InvalidArgument("ter:NoToken", "The requested preset token does not exist");
}

double Value(const pugi::xml_node& element, const char* attribute) {
  const double value = element.attribute(attribute).as_double();
  return std::clamp(value, -1.0, 1.0);
}

COutcome GetNodes(CSOAPCall& call) {
  const bool one = LocalName(call.In) == "GetNode";
  if (one && Text(call.In, "NodeToken") != NODE_TOKEN)
    return InvalidArgument("ter:NoEntity", "No such PTZ node");
  pugi::xml_node node = Attr(Add(call.Out, "tptz:PTZNode"), "token", NODE_TOKEN);
  Add(node, "tt:Name", "Dome");
  AddSpaces(node, "tt:SupportedPTZSpaces");
  Add(node, "tt:MaximumNumberOfPresets", static_cast<int>(MOST_PRESETS));
  Add(node, "tt:HomeSupported", "false");
  return {};
}

COutcome GetConfigurations(CSOAPCall& call) {
  AddPTZConfiguration(call.Model, call.Out, "tptz:PTZConfiguration");
  return {};
}

COutcome GetConfigurationOptions(CSOAPCall& call) {
  pugi::xml_node options = Add(call.Out, "tptz:PTZConfigurationOptions");
  AddSpaces(options, "tt:Spaces");
  AddRange(options, "tt:PTZTimeout", "PT1S", "PT60S");
  return {};
}

void AddVector(pugi::xml_node parent, const char* name, const CPTZVector& at) {
  pugi::xml_node node = Add(parent, name);
  pugi::xml_node panTilt = Attr(Add(node, "tt:PanTilt"), "x", std::to_string(at.Pan));
  Attr(Attr(panTilt, "y", std::to_string(at.Tilt)), "space", Space(ABS_PAN_TILT));
  Attr(Attr(Add(node, "tt:Zoom"), "x", std::to_string(at.Zoom)), "space", Space(ABS_ZOOM));
}

COutcome GetPresets(CSOAPCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  for (const CPreset& preset : call.Model.Presets) {
    pugi::xml_node node = Attr(Add(call.Out, "tptz:Preset"), "token", preset.Token);
    Add(node, "tt:Name", preset.Name);
    AddVector(node, "tt:PTZPosition", preset.Position);
  }
  return {};
}

COutcome SetPreset(CSOAPCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const std::string token = Text(call.In, "PresetToken"), name = Text(call.In, "PresetName");
  CPreset* preset = call.Model.PresetByToken(token);
  if (preset == nullptr && !token.empty()) return NoPreset();
  if (preset == nullptr) {
    if (call.Model.Presets.size() >= MOST_PRESETS)
      return CFault{500, "Receiver", "ter:Action", "ter:TooManyPresets", "Maximum number of presets reached"};
    const std::string number = std::to_string(call.Model.NextPreset++);
    preset = &call.Model.Presets.emplace_back(CPreset{number, "Preset " + number, {}});
  }
  if (!name.empty()) preset->Name = name;
  preset->Position = call.Model.Head.Position(Clock::now());
  ++call.Model.PTZCounts.Stored;
  Add(call.Out, "tptz:PresetToken", preset->Token);
  return {};
}

COutcome RemovePreset(CSOAPCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const std::string token = Text(call.In, "PresetToken");
  const auto gone =
      std::erase_if(call.Model.Presets, [&](const CPreset& preset) { return preset.Token == token; });
  if (gone == 0) return NoPreset();
  return {};
}

COutcome GotoPreset(CSOAPCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const CPreset* preset = call.Model.PresetByToken(Text(call.In, "PresetToken"));
  if (preset == nullptr) return NoPreset();
  call.Model.Head.MoveTo(preset->Position, Clock::now());
  ++call.Model.PTZCounts.Recalled;
  call.Model.PTZCounts.LastPreset = preset->Token;
  return {};
}

void CountMove(CSOAPCall& call, const pugi::xml_node& panTilt, const pugi::xml_node& zoom) {
  if (panTilt) ++call.Model.PTZCounts.Moves;
  if (zoom) ++call.Model.PTZCounts.Zooms;
}

Clock::duration Timeout(const std::string& text) {
  const int seconds = text.starts_with("PT") && text.ends_with("S") ? std::atoi(text.c_str() + 2) : 0;
  return seconds > 0 ? std::chrono::seconds(seconds) : DEFAULT_TIMEOUT;
}

COutcome ContinuousMove(CSOAPCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const pugi::xml_node panTilt = Child(call.In, "Velocity/PanTilt"), zoom = Child(call.In, "Velocity/Zoom");
  if (!panTilt && !zoom) return InvalidArgument("ter:InvalidVelocity", "Velocity is missing");
  call.Model.Head.Continuous({Value(panTilt, "x"), Value(panTilt, "y"), Value(zoom, "x")},
                             Timeout(Text(call.In, "Timeout")), Clock::now());
  CountMove(call, panTilt, zoom);
  return {};
}

COutcome RelativeMove(CSOAPCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const pugi::xml_node panTilt = Child(call.In, "Translation/PanTilt"),
                       zoom = Child(call.In, "Translation/Zoom");
  if (!panTilt && !zoom) return InvalidArgument("ter:InvalidTranslation", "Translation is missing");
  const std::string space = panTilt.attribute("space").value();
  const bool fov = space.empty() ? call.Model.Quirks.PTZSpace == "fov" : space == Space(REL_FOV);
  CPTZVector to = call.Model.Head.Target(Clock::now());
  to.Pan += Value(panTilt, "x") * (fov ? HalfViewPan(to.Zoom) : 1);
  to.Tilt += Value(panTilt, "y") * (fov ? HalfViewTilt(to.Zoom) : 1);
  to.Zoom += Value(zoom, "x");
  call.Model.Head.MoveTo(to, Clock::now());
  CountMove(call, panTilt, zoom);
  return {};
}

COutcome AbsoluteMove(CSOAPCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const pugi::xml_node panTilt = Child(call.In, "Position/PanTilt"), zoom = Child(call.In, "Position/Zoom");
  if (!panTilt && !zoom) return InvalidArgument("ter:InvalidPosition", "Position is missing");
  CPTZVector to = call.Model.Head.Target(Clock::now());
  if (panTilt) to.Pan = Value(panTilt, "x");
  if (panTilt) to.Tilt = Value(panTilt, "y");
  if (zoom) to.Zoom = Value(zoom, "x");
  call.Model.Head.MoveTo(to, Clock::now());
  CountMove(call, panTilt, zoom);
  return {};
}

COutcome Stop(CSOAPCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  call.Model.Head.Stop(Text(call.In, "PanTilt") != "false", Text(call.In, "Zoom") != "false", Clock::now());
  ++call.Model.PTZCounts.Stops;
  return {};
}

COutcome GetStatus(CSOAPCall& call) {
  if (COutcome fault = FindProfile(call)) return fault;
  const auto now = Clock::now();
  CPTZHead& head = call.Model.Head;
  pugi::xml_node status = Add(call.Out, "tptz:PTZStatus");
  AddVector(status, "tt:Position", head.Position(now));
  pugi::xml_node moving = Add(status, "tt:MoveStatus");
  Add(moving, "tt:PanTilt", head.MovingPanTilt(now) ? "MOVING" : "IDLE");
  Add(moving, "tt:Zoom", head.MovingZoom(now) ? "MOVING" : "IDLE");
  Add(status, "tt:UtcTime", UTCText(call.Model.Clock()));
  return {};
}

COutcome GetServiceCapabilities(CSOAPCall& call) {
  Attr(Attr(Add(call.Out, "tptz:Capabilities"), "MoveStatus", "true"), "StatusPosition", "true");
  return {};
}

constexpr CSOAPOperation OPERATIONS[] = {
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

void AddPTZConfiguration(const CCameraModel& model, pugi::xml_node parent, const char* name) {
  pugi::xml_node node = Attr(Add(parent, name), "token", CONFIG_TOKEN);
  Add(node, "tt:Name", "PTZConfig");
  Add(node, "tt:UseCount", static_cast<int>(model.Profiles.size()));
  Add(node, "tt:NodeToken", NODE_TOKEN);
  Add(node, "tt:DefaultAbsolutePantTiltPositionSpace", Space(ABS_PAN_TILT));  // sic, in the ONVIF schema
  Add(node, "tt:DefaultAbsoluteZoomPositionSpace", Space(ABS_ZOOM));
  Add(node, "tt:DefaultRelativePanTiltTranslationSpace",
      Space(model.Quirks.PTZSpace == "fov" ? REL_FOV : REL_PAN_TILT));
  Add(node, "tt:DefaultRelativeZoomTranslationSpace", Space(REL_ZOOM));
  Add(node, "tt:DefaultContinuousPanTiltVelocitySpace", Space(VEL_PAN_TILT));
  Add(node, "tt:DefaultContinuousZoomVelocitySpace", Space(VEL_ZOOM));
  Add(node, "tt:DefaultPTZTimeout", "PT10S");
  AddSpace2D(Add(node, "tt:PanTiltLimits"), "tt:Range", ABS_PAN_TILT);
  AddSpace1D(Add(node, "tt:ZoomLimits"), "tt:Range", ABS_ZOOM, "0.0");
}

const CService& PTZService() {
  static const CService g_service{ns::PTZ, "tptz", OPERATIONS};
  return g_service;
}
