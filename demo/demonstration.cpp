// What ./run shows of the commands: asks a running controller to do things with simulated cameras, as a user
// would, and looks at the simulation's control address whether the cameras did them. Each thing asked for is
// noted at its camera ("note" of controller/core/operations.h), which shows it on the terminal and in the
// summary.
#include "controller/core/stop_signal.h"
#include "controller/terminal/client_commands.h"
#include "host/net/http.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>

using nlohmann::json;
using Clock = std::chrono::steady_clock;

namespace {

constexpr unsigned LOOK_PERIOD_MS = 100;
constexpr unsigned PAUSE_MS = 500;  // before each thing, so that it can be watched
constexpr std::chrono::seconds UNTIL_RUNNING{90}, UNTIL_SEEN{20};
constexpr int HTTP_TIMEOUT_MS = 2000;
constexpr unsigned short HTTP_PORT = 80;
constexpr char PRESET[] = "Car park";
constexpr char SMALL_SIZE[] = "320x240";
constexpr int SMALL_WIDTH = 320;
constexpr int TONE_HZ = 1000, TALK_PACKETS = 100;  // about two seconds of sound

// A simulated camera beside what the controller says of it.
struct CPair {
  int Number;  // of the simulation, from 1
  std::string ID;
  json Sim, Seen;
};

class CDemonstration {
 public:
  // The control address of the simulated cameras, ADDRESS:PORT, and the controller's site file.
  CDemonstration(std::string simulation, std::string siteFile)
      : m_Simulation(std::move(simulation)), m_SiteFile(std::move(siteFile)) {}

  bool Run() {
    if (!WaitUntilRunning()) return Problem("the simulated cameras are not all running");
    bool good = true;
    for (size_t i = 0; i < m_Pairs.size() && !StopRequested(); ++i) {
      m_pPair = &m_Pairs[i];
      const std::string kind = m_pPair->Sim.value("kind", "");
      if (kind == "ptz") good &= Movements();
      if (kind == "door") {
        good &= Signal("motion", "/notifications/accepted");
        good &= Talk();
      }
      if (kind == "alarm") good &= Signal("alarm", "/alarms_sent");
    }
    return good || Problem("not everything that was asked for was seen");
  }

 private:
  // `seen` is given the simulated camera as it is now, again and again.
  using Seen = std::function<bool(const json& sim)>;

  static bool Problem(const std::string& text) {
    std::fprintf(stderr, "demonstrate: %s\n", text.c_str());
    return false;
  }

  json Sim(const std::string& path, const json* body = nullptr) const {
    CHTTPHeader header;
    header.Command((body != nullptr ? "POST " : "GET ") + path);
    header.Host(m_Simulation);
    if (body != nullptr) header.Content(body->dump());
    const std::unique_ptr<CHTMLPage> page(
        DoHTTPExchange(m_Simulation, header.CreateString(), nullptr, 0, HTTP_PORT, HTTP_TIMEOUT_MS));
    if (!page) return nullptr;
    const std::string text(page->Data(), static_cast<size_t>(page->NBytes()));
    const size_t end = text.find("\r\n\r\n");
    return end == std::string::npos ? json() : json::parse(text.substr(end + 4), nullptr, false);
  }

  json SimCamera() const { return Sim("/cameras/" + std::to_string(m_pPair->Number)); }

  json Controller(json request) const {
    if (m_pPair != nullptr) request["camera"] = m_pPair->ID;
    return Ask(m_SiteFile, request);
  }

  static bool WaitUntil(std::chrono::seconds time, const std::function<bool()>& condition) {
    const auto end = Clock::now() + time;
    while (!condition())
      if (Clock::now() > end || WaitForStop(LOOK_PERIOD_MS)) return false;
    return true;
  }

  // Pairs simulated cameras with those of the controller; false unless each has one that delivers pictures.
  bool Pair() {
    const json sims = Sim("/cameras"), status = Controller({{"do", "status"}});
    m_Pairs.clear();
    if (!sims.is_array() || !status.value("ok", false)) return false;
    for (const json& camera : status["cameras"])
      for (size_t i = 0; i < sims.size(); ++i)
        if (camera["serial"] == sims[i]["serial"] && camera["state"] == "running" && camera["jpeg_frames"] > 0)
          m_Pairs.push_back(
              {static_cast<int>(i) + 1, std::to_string(camera["id"].get<int>()), sims[i], camera});
    return !sims.empty() && m_Pairs.size() == sims.size();
  }

  bool WaitUntilRunning() {
    return WaitUntil(UNTIL_RUNNING, [this] { return Pair(); });
  }

  bool Try(const std::string& name, const std::function<bool()>& ask, const Seen& seen) {
    json note = {{"do", "note"}, {"name", name}, {"seen", false}};
    if (WaitForStop(PAUSE_MS)) return false;
    Controller(note);
    const bool good = ask() && WaitUntil(UNTIL_SEEN, [&] {
                        const json sim = SimCamera();
                        return sim.is_object() && seen(sim);
                      });
    note["seen"] = good;
    Controller(note);
    return good;
  }

  bool Try(const std::string& name, const json& request, const Seen& seen) {
    return Try(
        name, [&] { return Controller(request).value("ok", false); }, seen);
  }

  // 0 when the simulation is gone.
  static double Number(const json& sim, const std::string& pointer) {
    return sim.is_object() ? sim.value(json::json_pointer(pointer), 0.0) : 0.0;
  }
  static double Axis(const json& sim, const std::string& axis) { return Number(sim, "/ptz/" + axis); }

  static bool StandsAtPreset(const json& sim) {
    for (const json& preset : sim["presets"])
      if (preset["name"] == PRESET)
        return sim["ptz"]["moving"] == false &&
               std::abs(Axis(sim, "pan") - preset["at"].value("pan", 0.0)) < 0.01 &&
               std::abs(Axis(sim, "tilt") - preset["at"].value("tilt", 0.0)) < 0.01;
    return false;
  }

  bool Movements() {
    const double pan = Axis(SimCamera(), "pan");
    bool good = Try("move right", {{"do", "move"}, {"pan", 30}},
                    [&](const json& sim) { return Axis(sim, "pan") > pan + 0.05; });
    good &= Try("stop", {{"do", "stop"}}, [](const json& sim) { return sim["ptz"]["moving"] == false; });
    good &= Try(std::string("recall preset ") + PRESET, {{"do", "goto-preset"}, {"preset", PRESET}},
                StandsAtPreset);
    const double zoom = Axis(SimCamera(), "zoom");
    good &= Try("zoom in", {{"do", "zoom"}, {"direction", "in"}},
                [&](const json& sim) { return Axis(sim, "zoom") > zoom + 0.05; });
    return good & Try(std::string("pictures of ") + SMALL_SIZE,
                      {{"do", "set-stream"}, {"list", "jpeg"}, {"number", 1}, {"size", SMALL_SIZE}},
                      [this](const json&) { return DeliversSmallPictures(); });
  }

  json Status() const {
    const json status = Ask(m_SiteFile, {{"do", "status"}});
    for (const json& camera : status.value("cameras", json::array()))
      if (std::to_string(camera["id"].get<int>()) == m_pPair->ID) return camera;
    return json::object();
  }

  bool DeliversSmallPictures() const {
    const json camera = Status();
    for (const json& stream : camera.value("streams", json::array()))
      if (stream["kind"] == "JPEG" && stream["width"] == SMALL_WIDTH) return true;
    return false;
  }

  // Raises motion or an alarm at the camera: it must have sent its message, and the controller have the event.
  bool Signal(const std::string& what, const char* counter) {
    const double before = Number(SimCamera(), counter);
    const auto events = Status().value("events", 0);
    const json on = {{"on", true}};
    const std::string path = "/cameras/" + std::to_string(m_pPair->Number) + "/" + what;
    return Try(
        "raise " + what, [&] { return Sim(path, &on).is_object(); },
        [&](const json& sim) { return Number(sim, counter) > before && Status().value("events", 0) > events; });
  }

  bool CallState(const char* state) const { return Status().value("call_state", "") == state; }

  static int SpeakerPackets(const json& sim) {
    const json call = sim["door"]["call"];
    return call.is_object() ? call.value("/speaker/packets"_json_pointer, 0) : 0;
  }

  // Somebody rings, the panel's user answers, both talk, and the user hangs up. The camera does not listen to
  // its microphone while its speaker is loud, so the panel is silent when it is to hear.
  bool Talk() {
    bool good = Try("ring the panel", {{"do", "ring"}}, [this](const json&) { return CallState("calling"); });
    good = good &&
           Try("accept the call", {{"do", "accept"}}, [](const json& sim) { return SpeakerPackets(sim) > 0; });
    const int spoken = SpeakerPackets(SimCamera());
    good = good && Try("speak to the door station", {{"do", "talk"}, {"tone", TONE_HZ}},
                       [&](const json& sim) { return SpeakerPackets(sim) >= spoken + TALK_PACKETS; });
    const auto heard = Status().value("microphone_packets", int64_t{0});
    good = good && Try("hear the door station", {{"do", "talk"}}, [&](const json&) {
             return Status().value("microphone_packets", int64_t{0}) >= heard + TALK_PACKETS;
           });
    return Try("hang up", {{"do", "hang-up"}},
               [this](const json& sim) { return CallState("idle") && sim["door"]["call"].is_null(); }) &&
           good;
  }

  const std::string m_Simulation, m_SiteFile;
  std::vector<CPair> m_Pairs;
  const CPair* m_pPair = nullptr;  // the one at work
};

}  // namespace

// 0: everything was seen; 1: something was not; 2: wrong arguments.
int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(
        stderr,
        "usage: demonstrate SIMULATION FOLDER\n"
        "  the control address of the simulated cameras, ADDRESS:PORT, and the controller's data folder\n");
    return 2;
  }
  InstallStopSignals();
  try {
    return CDemonstration(argv[1], argv[2] + std::string("/site.json")).Run() ? 0 : 1;
  } catch (const std::exception& error) {  // an answer of another form than ours
    std::fprintf(stderr, "demonstrate: %s\n", error.what());
    return 1;
  }
}
