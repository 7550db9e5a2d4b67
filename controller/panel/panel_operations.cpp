// Operations of the panel, and of door stations' calls.
#include "controller/core/operations.h"
#include "controller/terminal/report.h"
#include "host/system/event_server.h"

#include <nlohmann/json.hpp>

using nlohmann::json;

namespace {

constexpr int LOWEST_TONE_HZ = 20, HIGHEST_TONE_HZ = 3400;

CAnswer Command(CRunningSite& site, const json& request, int command, const char* does, const char* cannot) {
  std::string error;
  const CCamera* camera = CameraInService(site, request, &error);
  if (camera == nullptr) return Refused(error);
  const std::string name = camera->Video()->Name().Str();
  if (!CEventServer::Instance()->ExecuteCommand(camera->ID(), command)) return Refused(name + cannot);
  return Ready({{"text", name + does + "\n"}});
}

CAnswer Ring(CRunningSite& site, const json& request) {
  return Command(site, request, COMMAND_PLACE_CALL, " calls",
                 " places no call: it is no door station, or has a call already");
}

CAnswer Cancel(CRunningSite& site, const json& request) {
  return Command(site, request, COMMAND_CANCEL_CALL, " calls no longer", " is no door station");
}

CAnswer Accept(CRunningSite& site, const json&) {
  const std::string peer = site.Panel->PeerName();
  return site.Panel->Accept() ? Ready({{"text", "the call of " + peer + " is accepted\n"}})
                              : Refused("the panel does not ring");
}

CAnswer Decline(CRunningSite& site, const json&) {
  const std::string peer = site.Panel->PeerName();
  return site.Panel->Decline() ? Ready({{"text", "the call of " + peer + " is declined\n"}})
                               : Refused("the panel does not ring");
}

CAnswer HangUp(CRunningSite& site, const json&) {
  const std::string peer = site.Panel->PeerName();
  return site.Panel->HangUp() ? Ready({{"text", "the talk with " + peer + " ends\n"}})
                              : Refused("the panel does not talk");
}

// Read aside, since it may take a while.
CAnswer TalkFromFile(CRunningSite& site, const std::string& path) {
  return [&site, path, loader = CSoundLoader(path)]() -> json {
    if (!loader.Done()) return nullptr;
    if (!loader.Error().empty()) return RefusedJSON(loader.Error());
    site.Panel->Say(CSpeech(loader.Sound()));
    return {{"ok", true}, {"text", "the panel says " + path + "\n"}};
  };
}

CAnswer Talk(CRunningSite& site, const json& request) {
  const std::string file = TextArgument(request, "file");
  if (!file.empty()) return TalkFromFile(site, file);
  const int tone = NumberArgument(request, "tone");
  if (tone != 0 && (tone < LOWEST_TONE_HZ || tone > HIGHEST_TONE_HZ))
    return Refused("a tone is from " + std::to_string(LOWEST_TONE_HZ) + " to " +
                   std::to_string(HIGHEST_TONE_HZ) + " Hz");
  site.Panel->Say(CSpeech(tone));
  return Ready({{"text", tone == 0 ? "the panel is silent\n"
                                   : "the panel says a tone of " + std::to_string(tone) + " Hz\n"}});
}

CAnswer Calls(CRunningSite& site, const json&) {
  const CPanel& panel = *site.Panel;
  const std::string state = StateName(panel.IcomState()), peer = panel.PeerName();
  std::string text = "Panel: " + state + Printable(peer.empty() ? "" : ", " + peer) + "\n";
  for (const std::string& sound : panel.Sounds()) text += "   heard: " + Printable(sound) + "\n";
  if (!panel.Problem().empty()) text += "   PROBLEM: " + panel.Problem() + "\n";
  json doors = json::array();
  for (const auto& camera : site.Cameras) {
    const CCameraStatus status = camera->Status();
    if (!status.Calls) continue;
    json door = CallsJSON(*status.Calls);
    door["camera"] = status.Name;
    door["id"] = status.ID;
    doors.push_back(std::move(door));
    text += Printable(status.Name) + ": " + CallsText(*status.Calls) + "\n";
  }
  return Ready(
      {{"panel", {{"state", state}, {"peer", peer}, {"sounds", panel.Sounds()}, {"problem", panel.Problem()}}},
       {"doors", std::move(doors)},
       {"text", text}});
}

constexpr COperation OPERATIONS[] = {
    {"ring", Ring},      {"cancel", Cancel}, {"accept", Accept}, {"decline", Decline},
    {"hang-up", HangUp}, {"talk", Talk},     {"calls", Calls},
};

}  // namespace

std::span<const COperation> PanelOperations() {
  return OPERATIONS;
}
