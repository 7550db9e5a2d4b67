#include "controller/core/operations.h"

#include "controller/core/problems.h"
#include "controller/site/camera_choice.h"
#include "controller/terminal/report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

using nlohmann::json;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int FULL_SPEED = 100;  // percent
constexpr int64_t MOST_NUMBER = 1000000000;
constexpr int MOST_WAIT_S = 60;    // for events
constexpr size_t MOST_NAME = 100;  // of a noted command
constexpr size_t PLAIN_WIDTH = 500;

CAnswer Status(CRunningSite& site, const json& request) {
  const size_t width = static_cast<size_t>(std::max(NumberArgument(request, "width", PLAIN_WIDTH), 1));
  json list = json::array();
  std::string text;
  for (const auto& camera : site.Cameras) {
    const CCameraStatus status = camera->Status();
    list.push_back(CameraJSON(status));
    for (const std::string& line : CameraLines(status, width)) text += line + "\n";
  }
  if (text.empty()) text = "no cameras\n";
  const std::vector<CProblem> problems = CProblemList::Instance()->All();
  for (const CProblem& problem : problems)
    text +=
        (problem.CameraID != 0 ? std::to_string(problem.CameraID) + "  " : "") + ProblemLine(problem) + "\n";
  return Ready({{"cameras", std::move(list)}, {"problems", ProblemsJSON(problems)}, {"text", text}});
}

// A camera of the request that can do what `option` stands for.
CVideoSystem* Able(const CRunningSite& site, const json& request, unsigned option, const char* what,
                   std::string* error) {
  const CCamera* camera = CameraInService(site, request, error);
  if (camera == nullptr) return nullptr;
  if ((camera->Video()->Options() & option) != 0) return camera->Video();
  *error = camera->Video()->Name().Str() + " cannot " + what;
  return nullptr;
}

std::string Percent(int value, const char* positive, const char* negative) {
  return std::string(value < 0 ? negative : positive) + " " + std::to_string(std::abs(value)) + " %";
}

CAnswer Move(CRunningSite& site, const json& request) {
  std::string error;
  CVideoSystem* video = Able(site, request, VIDEO_OPTION_PAN_TILT, "pan or tilt", &error);
  if (video == nullptr) return Refused(error);
  const int pan = NumberArgument(request, "pan"), tilt = NumberArgument(request, "tilt");
  if (pan == 0 && tilt == 0) return Refused("neither pan nor tilt is given");
  if (std::max(std::abs(pan), std::abs(tilt)) > FULL_SPEED)
    return Refused("pan and tilt are -100 to 100 percent");
  video->MoveFrame(pan, tilt, 0, 0);
  std::string text = video->Name().Str() + " is asked to move";
  if (pan != 0) text += " " + Percent(pan, "right", "left");
  if (tilt != 0) text += " " + Percent(tilt, "down", "up");
  return Ready({{"text", text + "\n"}});
}

CAnswer StopMoving(CRunningSite& site, const json& request) {
  std::string error;
  CVideoSystem* video = Able(site, request, VIDEO_OPTION_PAN_TILT | VIDEO_OPTION_ZOOM, "move", &error);
  if (video == nullptr) return Refused(error);
  video->StopMove();
  return Ready({{"text", video->Name().Str() + " is asked to stop\n"}});
}

CAnswer Zoom(CRunningSite& site, const json& request) {
  std::string error;
  const std::string direction = TextArgument(request, "direction");
  if (direction != "in" && direction != "out") return Refused("the direction is in or out");
  CVideoSystem* video = Able(site, request, VIDEO_OPTION_ZOOM, "zoom", &error);
  if (video == nullptr) return Refused(error);
  video->ZoomInOut(direction == "in" ? -1 : 1);  // above 0 is towards the wide end
  return Ready({{"text", video->Name().Str() + " is asked to zoom " + direction + "\n"}});
}

CAnswer Presets(CRunningSite& site, const json& request) {
  std::string error;
  const CCamera* camera = CameraInService(site, request, &error);
  if (camera == nullptr) return Refused(error);
  json list = json::array();
  std::vector<std::vector<std::string>> rows(1, {"No.", "Preset"});
  for (int i = 0; i < camera->Video()->NPresets(); ++i) {
    const std::string name = camera->Video()->PresetName(i).Str();
    list.push_back({{"number", i + 1}, {"name", name}});
    rows.push_back({std::to_string(i + 1), Printable(name)});
  }
  const std::string text = list.empty() ? camera->Video()->Name().Str() + " has no presets\n" : Table(rows);
  return Ready({{"presets", std::move(list)}, {"text", text}});
}

// Index of a preset by its name or its number from 1; -1 when there is none.
int PresetIndex(CVideoSystem* video, const std::string& wanted) {
  const int n = video->NPresets();
  for (int i = 0; i < n; ++i)
    if (video->PresetName(i).Str() == wanted) return i;
  for (int i = 0; i < n; ++i)
    if (std::to_string(i + 1) == wanted) return i;
  return -1;
}

CAnswer Preset(CRunningSite& site, const json& request, bool store) {
  std::string error;
  CVideoSystem* video = Able(site, request, VIDEO_OPTION_PRESETS, "keep presets", &error);
  if (video == nullptr) return Refused(error);
  const std::string wanted = TextArgument(request, "preset");
  const int index = PresetIndex(video, wanted);
  if (index < 0) return Refused(video->Name().Str() + " has no preset '" + wanted + "'");
  video->PresetControl(store ? 1 : 0, index);
  return Ready({{"text", video->Name().Str() + " is asked to " + (store ? "store its position as " : "go to ") +
                             video->PresetName(index).Str() + "\n"}});
}

CAnswer GotoPreset(CRunningSite& site, const json& request) {
  return Preset(site, request, false);
}

CAnswer StorePreset(CRunningSite& site, const json& request) {
  return Preset(site, request, true);
}

json EventsJSON(const CEventList& events, uint64_t since) {
  json list = json::array();
  std::string text;
  for (const CEventEntry& entry : events.Since(since)) {
    const std::string name = EventName(entry.Event.Event);
    list.push_back({{"number", entry.Number},
                    {"time", entry.Time},
                    {"camera", entry.Camera},
                    {"id", entry.Event.ComponentID},
                    {"event", entry.Event.Event},
                    {"name", name},
                    {"data", entry.Event.Data}});
    text += Printable(entry.Time + "  " + entry.Camera + "  " + name) + "\n";
  }
  return {{"ok", true}, {"events", std::move(list)}, {"latest", events.Latest()}, {"text", text}};
}

// Those after number `since`; when there are none, waits for one for `wait` seconds.
CAnswer Events(CRunningSite& site, const json& request) {
  const auto since = static_cast<uint64_t>(std::max(NumberArgument(request, "since"), 0));
  const auto end =
      Clock::now() + std::chrono::seconds(std::clamp(NumberArgument(request, "wait"), 0, MOST_WAIT_S));
  return [&site, since, end]() -> json {
    if (site.Events.Latest() <= since && Clock::now() < end) return nullptr;
    return EventsJSON(site.Events, since);
  };
}

// What a demonstration has asked of a camera, and whether the camera was seen to do it.
CAnswer Note(CRunningSite& site, const json& request) {
  std::string error;
  CCamera* camera = CameraArgument(site, request, &error);
  if (camera == nullptr) return Refused(error);
  const std::string name = TextArgument(request, "name").substr(0, MOST_NAME);
  const auto seen = request.find("seen");
  camera->NoteCommand(name, seen != request.end() && *seen == true);
  return Ready({{"text", "noted\n"}});
}

constexpr COperation OPERATIONS[] = {
    {"status", Status},
    {"move", Move},
    {"stop", StopMoving},
    {"zoom", Zoom},
    {"presets", Presets},
    {"goto-preset", GotoPreset},
    {"store-preset", StorePreset},
    {"events", Events},
    {"note", Note},
};

}  // namespace

CCamera* CRunningSite::ByID(int id) const {
  const auto found = std::ranges::find_if(Cameras, [id](const auto& camera) { return camera->ID() == id; });
  return found == Cameras.end() ? nullptr : found->get();
}

CAnswer BeginOperation(CRunningSite& site, const std::string& request) {
  const json arguments = json::parse(request, nullptr, false);
  if (!arguments.is_object()) return Refused("the request is no JSON object");
  const std::string name = TextArgument(arguments, "do");
  for (const std::span<const COperation> table :
       {std::span<const COperation>(OPERATIONS), StreamOperations(), PanelOperations(), CameraOperations()})
    for (const COperation& operation : table)
      if (name == operation.Name) return operation.Begin(site, arguments);
  return Refused("there is no operation '" + name + "'");
}

CAnswer Ready(json answer) {
  answer["ok"] = true;
  return [answer = std::move(answer)] { return answer; };
}

json RefusedJSON(const std::string& why) {
  return {{"ok", false}, {"error", why}};
}

CAnswer Refused(const std::string& why) {
  return [why] { return RefusedJSON(why); };
}

std::string TextArgument(const json& request, const char* name, const std::string& otherwise) {
  const auto found = request.find(name);
  return found != request.end() && found->is_string() ? found->get<std::string>() : otherwise;
}

int NumberArgument(const json& request, const char* name, int otherwise) {
  const auto found = request.find(name);
  if (found == request.end() || !found->is_number_integer()) return otherwise;
  return static_cast<int>(std::clamp<int64_t>(found->get<int64_t>(), -MOST_NUMBER, MOST_NUMBER));
}

CCamera* CameraArgument(const CRunningSite& site, const json& request, std::string* error) {
  const CVideoSystem* video = ChooseCamera(TextArgument(request, "camera"), error);
  CCamera* camera = video != nullptr ? site.ByID(video->ID()) : nullptr;
  if (video != nullptr && camera == nullptr) *error = Printable(video->Name().Str()) + " is being removed";
  return camera;
}

CCamera* CameraInService(const CRunningSite& site, const json& request, std::string* error) {
  CCamera* camera = CameraArgument(site, request, error);
  if (camera == nullptr || camera->InService()) return camera;
  const CCameraStatus status = camera->Status();
  *error =
      status.Name + " is not in service: " + status.State + (status.Reason.empty() ? "" : ": " + status.Reason);
  return nullptr;
}
