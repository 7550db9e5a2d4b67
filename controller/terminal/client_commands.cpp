#include "controller/terminal/client_commands.h"

#include "controller/core/command_socket.h"
#include "controller/core/log.h"
#include "controller/core/stop_signal.h"
#include "controller/terminal/password.h"

#include <sys/ioctl.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <nlohmann/json.hpp>

using nlohmann::json;

namespace {

constexpr int ANSWER_S = 30;       // longest wait for an answer
constexpr int FOLLOW_WAIT_S = 20;  // of one question for events

// Puts options and arguments of a command into its request.
struct CRequestOptions {
  CLI::App* Command;
  json* Request;

  void Text(const char* option, const char* key, const char* help, const char* type = "TEXT") const {
    Add<std::string>(option, key, help)->type_name(type);
  }
  void Number(const char* option, const char* key, const char* help, const char* type = "NUMBER") const {
    Add<int>(option, key, help)->type_name(type);
  }
  void Camera() const { Add<std::string>("CAMERA", "camera", "Name, id or address of the camera")->required(); }
  void Stream() const {
    Camera();
    Add<std::string>("LIST", "list", "jpeg or h264")->required();
    Add<int>("NUMBER", "number", "Number of the stream in its list, from 1")->required();
  }
  template <class Value>
  CLI::Option* Add(const char* option, const char* key, const char* help) const {
    return Command->add_option_function<Value>(
        option, [request = Request, key](const Value& value) { (*request)[key] = value; }, help);
  }
};

struct CClientCommand {
  const char* Name;
  const char* Help;
  void (*Options)(const CRequestOptions& o);  // null: none
};

void MoveOptions(const CRequestOptions& o) {
  o.Camera();
  o.Number("--pan", "pan", "-100 to 100: speed, or part of half a picture; above 0 is to the right", "PERCENT");
  o.Number("--tilt", "tilt", "-100 to 100, likewise; above 0 is down", "PERCENT");
}

void ZoomOptions(const CRequestOptions& o) {
  o.Camera();
  o.Add<std::string>("DIRECTION", "direction", "in or out, by an eighth of the range")->required();
}

void PresetOptions(const CRequestOptions& o) {
  o.Camera();
  o.Add<std::string>("PRESET", "preset", "Its name or its number")->required();
}

void RenameOptions(const CRequestOptions& o) {
  o.Camera();
  o.Add<std::string>("NAME", "name", "What it is called from now on")->required();
}

void PasswordOptions(const CRequestOptions& o) {
  o.Camera();
  o.Text("--user", "user",
         "User name on the camera (default: as before); the password is taken from CONTROLLER_PASSWORD or "
         "asked for",
         "NAME");
}

void SetStreamOptions(const CRequestOptions& o) {
  o.Stream();
  o.Text("--size", "size", "Size of the pictures, as 640x480", "WxH");
  o.Text("--encoding", "encoding", "JPEG or H264");
  o.Number("--fps", "frame_rate", "Pictures a second");
  o.Number("--bitrate", "bitrate", "kbit/s");
  o.Number("--quality", "quality", "In the camera's own scale");
  o.Number("--gov", "gov_length", "Pictures from one key frame to the next");
  o.Number("--interval", "interval", "Encode every how many-th picture");
  o.Text("--h264-profile", "h264_profile", "Baseline, Main, Extended or High");
  o.Text("--transport", "transport", "tcp or udp");
  o.Text("--profile", "profile", "Media profile to stream", "TOKEN");
  o.Text("--encoder", "encoder", "Encoder to drive; default: leave it as the camera has it", "TOKEN");
  o.Text("--name", "name", "What the stream is called");
}

void EventOptions(const CRequestOptions& o) {
  o.Number("--since", "since", "Only those after this number");
  o.Command->add_flag_callback(
      "--follow", [request = o.Request] { (*request)["wait"] = FOLLOW_WAIT_S; },
      "Go on with those that come, until Ctrl-C");
}

// A file is named as seen from here, and read by the controller.
void TalkOptions(const CRequestOptions& o) {
  auto* file = o.Command
                   ->add_option_function<std::string>(
                       "--file",
                       [request = o.Request](const std::string& path) {
                         (*request)["file"] = std::filesystem::absolute(path).lexically_normal().string();
                       },
                       "Say what is in this sound file, once")
                   ->type_name("FILE");
  o.Add<int>("--tone", "tone", "Say a tone")->type_name("HZ")->excludes(file);
}

constexpr CClientCommand COMMANDS[] = {
    {"status", "What the cameras are doing", nullptr},
    {"move", "Pan and tilt a camera; one that moves at a speed goes on until it is stopped", MoveOptions},
    {"stop", "Stop a camera's movement", [](const CRequestOptions& o) { o.Camera(); }},
    {"zoom", "Zoom a camera one step", ZoomOptions},
    {"presets", "List a camera's presets", [](const CRequestOptions& o) { o.Camera(); }},
    {"goto-preset", "Move a camera to a preset", PresetOptions},
    {"store-preset", "Store a camera's position as a preset that it has", PresetOptions},
    {"encoders", "A camera's encoders, what they can do, and its profiles",
     [](const CRequestOptions& o) { o.Camera(); }},
    {"streams", "A camera's streams as the user wants them", [](const CRequestOptions& o) { o.Camera(); }},
    {"set-stream", "Change a stream, or add one, and see whether the camera takes it", SetStreamOptions},
    {"remove-stream", "Remove a stream from its list", [](const CRequestOptions& o) { o.Stream(); }},
    {"remove", "Take a camera out of the site; its recordings stay",
     [](const CRequestOptions& o) { o.Camera(); }},
    {"rename", "Give a camera another name", RenameOptions},
    {"password", "Give a camera's user name and password anew; the password is asked for", PasswordOptions},
    {"ring", "Let a door station call, as when its button is pressed",
     [](const CRequestOptions& o) { o.Camera(); }},
    {"cancel", "Take a door station's call back", [](const CRequestOptions& o) { o.Camera(); }},
    {"accept", "Take the call for which the panel rings", nullptr},
    {"decline", "Decline it", nullptr},
    {"hang-up", "End the panel's talk", nullptr},
    {"talk", "What the panel says from now on: silence, a tone or a sound file", TalkOptions},
    {"calls", "The panel, and the calls of all door stations", nullptr},
    {"events", "Motion and alarm events of all cameras", EventOptions},
};

void Print(const COptions& options, json answer) {
  const std::string text = answer.value("text", "");
  answer.erase("text");
  WriteResult(options.JSON ? answer.dump() + "\n" : text);
}

size_t TerminalWidth() {
  winsize size{};
  return ioctl(ResultDescriptor(), TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace

void AddClientCommands(CLI::App* app, COptions* options) {
  for (const CClientCommand& command : COMMANDS) {
    CLI::App* sub = app->add_subcommand(command.Name, command.Help);
    sub->group("Asking a running controller");
    sub->add_option("--data", options->DataFolder, "Data folder of the controller (default: onvifcam-data)")
        ->type_name("FOLDER");
    sub->add_option("--site", options->SiteFile, "Its site file (default: site.json in the data folder)")
        ->type_name("FILE");
    sub->add_flag("--json", options->JSON, "The answer for programs, as JSON");
    if (command.Options != nullptr) command.Options({sub, &options->Request});
    sub->callback([options, name = command.Name] {
      options->Command = ECommand::Ask;
      options->Request["do"] = name;
    });
  }
}

json Ask(const std::string& siteFile, const json& request) {
  std::string text, error;
  const std::string line = request.dump(-1, ' ', false, json::error_handler_t::replace);
  if (!AskController(CommandSocketPath(siteFile), line, ANSWER_S, &text, &error))
    return {{"ok", false}, {"error", siteFile + ": " + error}};
  json answer = json::parse(text, nullptr, false);
  if (answer.is_object()) return answer;
  return {{"ok", false}, {"error", siteFile + ": the answer makes no sense"}};
}

int AskCommand(const COptions& options) {
  json request = options.Request;
  const bool follow = request.contains("wait");
  if (std::string password, error; request["do"] == "password") {
    if (!AskPassword(request.value("user", request.value("camera", "")), &password, &error)) {
      WriteProblem(error);
      return 2;
    }
    request["password"] = password;
  }
  if (const size_t width = TerminalWidth(); width > 0) request["width"] = width;
  do {
    const json answer = Ask(options.SiteFile, request);
    if (follow && StopRequested()) return 0;
    Print(options, answer);
    if (!answer.value("ok", false)) {
      WriteProblem(answer.value("error", "no reason given"));
      return 1;
    }
    if (follow) request["since"] = answer.value("latest", 0);
  } while (follow);
  return 0;
}
