#include "controller/core/options.h"

#include "controller/core/plugin_loader.h"
#include "controller/terminal/client_commands.h"
#include "controller/terminal/password.h"
#include "host/video/rtsp_profile.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace {

constexpr char HELP_HINT[] = "\nRun controller --help, or --help behind a command, for what there is.";
constexpr char HTTP_PREFIX[] = "http://";
constexpr size_t HTTP_PREFIX_LENGTH = sizeof HTTP_PREFIX - 1;

void AddCommon(CLI::App* command, COptions* o) {
  command->add_option("--plugin", o->Plugin, "The camera driver (default: onvifcam.so beside this program)")
      ->type_name("FILE");
  command
      ->add_option("--interface", o->Interface,
                   "Network interface towards the cameras (default: that of the default route)")
      ->type_name("NAME");
  command
      ->add_option("--data", o->DataFolder,
                   "Folder of the site file, log and pictures (default: onvifcam-data)")
      ->type_name("FOLDER");
  command->add_option("--site", o->SiteFile, "Site file (default: site.json in the data folder)")
      ->type_name("FILE");
  command->add_option("--log", o->LogFile, "Log file (default: controller.log in the data folder)")
      ->type_name("FILE");
  command->add_flag("--json", o->JSON, "Output for programs: JSON instead of tables");
}

void AddUser(CLI::App* command, COptions* o) {
  command
      ->add_option("--user", o->User,
                   std::string("User name on the camera; its password is taken from ") + PASSWORD_VARIABLE +
                       " or asked for")
      ->type_name("NAME");
}

std::string URLCheck(const std::string& url) {
  std::string error;
  CheckServiceURL(url, &error);
  return error;
}

void AddPanel(CLI::App* command, COptions* o) {
  command->add_option("--answer", o->Answer, "What the panel does when a door station rings (default: ask)")
      ->check(CLI::IsMember({"ask", "accept", "decline"}));
  auto* file = command->add_option("--say", o->SpeechFile, "What the panel says in a call: a sound file")
                   ->type_name("FILE")
                   ->check(CLI::ExistingFile);
  command->add_option("--tone", o->ToneHz, "What the panel says in a call: a tone (default: silence)")
      ->type_name("HZ")
      ->check(CLI::Range(20, 3400))
      ->excludes(file);
  command
      ->add_option("--sounds", o->SoundFolder,
                   "Folder of what the panel hears, as WAV files (default: sounds in the data folder)")
      ->type_name("FOLDER");
  command->add_flag("--relay", o->Relay, "Send the panel's sound by way of a relay");
}

void AddRun(CLI::App* command, COptions* o) {
  AddCommon(command, o);
  AddUser(command, o);
  command->add_flag("--discover", o->Discover,
                    "Search the network for cameras now and once a minute, install them");
  command
      ->add_option("--discover-most", o->DiscoverMost,
                   "A search installs cameras until the site has so many that were found (default: 8)")
      ->type_name("NUMBER")
      ->check(CLI::Range(1, 512));
  command->add_option("--camera", o->URL, "Install the camera at this address")
      ->type_name("URL")
      ->check(URLCheck);
  command
      ->add_option("--record", o->RecordFolder,
                   "Record every camera (default: into recordings in the data folder)")
      ->type_name("FOLDER")
      ->expected(0, 1);
  command
      ->add_option("--pictures", o->PictureFolder,
                   "Folder of the latest picture of each stream (default: pictures in the data folder)")
      ->type_name("FOLDER");
  command->add_option("--keep-pictures", o->KeepFolder, "Keep every JPEG picture in this folder")
      ->type_name("FOLDER");
  AddPanel(command, o);
  auto* udp = command->add_flag_callback(
      "--udp", [o] { o->Transport = RTP_TRANSPORT_UDP; }, "Take all streams over UDP from now on");
  command
      ->add_flag_callback(
          "--tcp", [o] { o->Transport = RTP_TRANSPORT_TCP; }, "Take all streams interleaved in TCP from now on")
      ->excludes(udp);
  command->add_option("--for", o->Seconds, "End after this time")
      ->type_name("SECONDS")
      ->check(CLI::PositiveNumber);
  command->add_option("--summary", o->SummaryFile, "Write a JSON summary at the end")->type_name("FILE");
}

void AddShow(CLI::App* command, COptions* o) {
  AddCommon(command, o);
  AddUser(command, o);
  command->add_option("CAMERA", o->Cameras, "Name or id in the site file, or a service URL")->required();
  command->add_option("--wait", o->WaitSeconds, "How long to wait for the camera to load (default: 20)")
      ->type_name("SECONDS")
      ->check(CLI::PositiveNumber);
}

// So that a path in the summary means the same wherever it is read.
void MakeAbsolute(std::string* path) {
  if (!path->empty()) *path = std::filesystem::absolute(*path).lexically_normal().string();
}

void FillDefaults(COptions* o) {
  if (o->Plugin.empty()) o->Plugin = CPlugin::DefaultPath();
  if (o->SiteFile.empty()) o->SiteFile = o->DataFolder + "/site.json";
  if (o->LogFile.empty()) o->LogFile = o->DataFolder + "/controller.log";
  if (o->PictureFolder.empty()) o->PictureFolder = o->DataFolder + "/pictures";
  if (o->SoundFolder.empty()) o->SoundFolder = o->DataFolder + "/sounds";
  if (o->Record && o->RecordFolder.empty()) o->RecordFolder = o->DataFolder + "/recordings";
  for (std::string* path :
       {&o->SiteFile, &o->LogFile, &o->PictureFolder, &o->KeepFolder, &o->RecordFolder, &o->SoundFolder})
    MakeAbsolute(path);
}

}  // namespace

bool CheckServiceURL(const std::string& url, std::string* error) {
  const auto refuse = [error](const std::string& why) {
    *error = why;
    return false;
  };
  if (url.compare(0, HTTP_PREFIX_LENGTH, HTTP_PREFIX) != 0)
    return refuse("'" + url + "' is not a camera's address: it must begin with http://");
  const size_t slash = url.find('/', HTTP_PREFIX_LENGTH);
  const std::string host = url.substr(HTTP_PREFIX_LENGTH, slash - HTTP_PREFIX_LENGTH);
  if (host.empty() || host[0] == ':') return refuse("'" + url + "' names no host");
  if (slash == std::string::npos)
    return refuse("'" + url + "' has no path; most cameras answer at " + url + "/onvif/device_service");
  const size_t colon = host.find(':');
  if (colon != std::string::npos) {
    char* end = nullptr;
    const long port = std::strtol(host.c_str() + colon + 1, &end, 10);
    if (*end != '\0' || port < 1 || port > 65535)
      return refuse("'" + url + "' has no usable port: " + host.substr(colon + 1));
  }
  return true;
}

EParse ParseOptions(int argc, const char* const* argv, COptions* options, std::string* text) {
  CLI::App app("Reference controller: finds, shows and records network cameras through the camera driver.");
  app.name("controller");
  app.require_subcommand(1);
  CLI::App* run = app.add_subcommand("run", "Run the site's cameras until stopped");
  CLI::App* discover =
      app.add_subcommand("discover", "Search the network and list the cameras not yet installed");
  CLI::App* components = app.add_subcommand("components", "List the component types that the driver offers");
  CLI::App* show = app.add_subcommand("show", "Load one camera and show what it is and offers");
  AddRun(run, options);
  AddCommon(discover, options);
  AddUser(discover, options);
  AddCommon(components, options);
  AddShow(show, options);
  AddClientCommands(&app, options);
  const auto named = [&](const CLI::App* command) { return command->check_name(argv[1]); };
  if (argc > 1 && argv[1][0] != '-' && std::ranges::none_of(app.get_subcommands({}), named)) {
    *text = std::string("there is no command '") + argv[1] + "'" + HELP_HINT;
    return EParse::Wrong;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    const auto chosen = app.get_subcommands();
    *text = chosen.empty() ? app.help() : chosen.front()->help("controller");
    return EParse::Done;
  } catch (const CLI::ParseError& error) {
    *text = error.what() + std::string(HELP_HINT);
    return EParse::Wrong;
  }
  if (run->parsed()) options->Command = ECommand::Run;
  options->Record = run->count("--record") > 0;
  if (discover->parsed()) options->Command = ECommand::Discover;
  if (components->parsed()) options->Command = ECommand::Components;
  if (show->parsed()) options->Command = ECommand::Show;
  FillDefaults(options);
  return EParse::Go;
}
