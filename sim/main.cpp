// camsim: several simulated cameras in one process, each on an address of its own.
#include "sim/camera.h"
#include "sim/control.h"
#include "sim/discovery.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int FIRST_HOST = 11;  // cameras without an address of their own get 127.0.0.11, .12, ...

struct CSimOptions {
  std::vector<std::string> Kinds, KindsAt, Quirks;
  std::string User = "admin", PasswordEnv, InterfaceName = "lo", Control = "127.0.0.10:8900";
  std::string SoundFolder;
  int HTTPPort = 8080, RTSPPort = 8554, SIPPort = 5060;
};

using Cameras = std::vector<std::unique_ptr<CSimCamera>>;

bool InterfaceAddress(const std::string& name, std::string* address) {
  ifaddrs* all = nullptr;
  if (getifaddrs(&all) != 0) return false;
  for (const ifaddrs* at = all; at != nullptr; at = at->ifa_next) {
    if (at->ifa_addr == nullptr || at->ifa_addr->sa_family != AF_INET || name != at->ifa_name) continue;
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(at->ifa_addr)->sin_addr, text, sizeof text);
    if (address->empty()) *address = text;
  }
  freeifaddrs(all);
  return !address->empty();
}

bool AddCamera(const CSimOptions& options, CRTSPLoop& loop, const std::string& kind, const std::string& address,
               Cameras* cameras, std::string* error) {
  CSimIdentity identity;
  if (!DescribeKind(kind, static_cast<int>(cameras->size()) + 1, &identity)) {
    *error = "no kind of camera is called '" + kind + "' (there are ptz, door and alarm)";
    return false;
  }
  auto camera = std::make_unique<CSimCamera>(identity, address, options.HTTPPort, options.RTSPPort, loop);
  camera->Model().User = options.User;
  const char* password = options.PasswordEnv.empty() ? "secret" : std::getenv(options.PasswordEnv.c_str());
  if (password == nullptr) {
    *error = "the environment variable " + options.PasswordEnv + " (--password-env) is not set";
    return false;
  }
  camera->Model().Password = password;
  camera->Model().SIPPort = options.SIPPort;
  camera->Model().SoundFolder = options.SoundFolder;
  cameras->push_back(std::move(camera));
  return true;
}

bool MakeCameras(const CSimOptions& options, CRTSPLoop& loop, Cameras* cameras, std::string* error) {
  for (const std::string& kind : options.Kinds) {
    const std::string address = "127.0.0." + std::to_string(FIRST_HOST + cameras->size());
    if (!AddCamera(options, loop, kind, address, cameras, error)) return false;
  }
  for (const std::string& item : options.KindsAt) {
    const size_t colon = item.find(':');
    if (colon == std::string::npos) {
      *error = "--camera-at takes ADDRESS:KIND, not '" + item + "'";
      return false;
    }
    if (!AddCamera(options, loop, item.substr(colon + 1), item.substr(0, colon), cameras, error)) return false;
  }
  return true;
}

// [N:]NAME=VALUE; without a number for all cameras.
bool ApplyQuirk(const Cameras& cameras, const std::string& item, std::string* error) {
  const size_t colon = item.find(':'), equal = item.find('=');
  if (equal == std::string::npos || (colon != std::string::npos && colon > equal)) {
    *error = "--quirk takes [N:]NAME=VALUE, not '" + item + "'";
    return false;
  }
  const size_t only = colon == std::string::npos ? 0 : std::strtoul(item.c_str(), nullptr, 10);
  const size_t from = colon == std::string::npos ? 0 : colon + 1;
  if (colon != std::string::npos && (only < 1 || only > cameras.size())) {
    *error = "--quirk " + item + ": there is no such camera";
    return false;
  }
  for (size_t i = 0; i < cameras.size(); ++i) {
    if (only != 0 && i + 1 != only) continue;
    CQuirks& quirks = cameras[i]->Model().Quirks;
    if (!SetQuirk(quirks, item.substr(from, equal - from), item.substr(equal + 1), error)) return false;
  }
  return true;
}

int Fail(const std::string& error) {
  std::fprintf(stderr, "camsim: %s\n", error.c_str());
  return 1;
}

void PrintCamera(CCameraModel& model) {
  std::printf("%-5s  %s  %s %s  serial %s\n", model.Identity.Kind.c_str(),
              (model.HTTPBase() + "/onvif/device_service").c_str(), model.Identity.Manufacturer.c_str(),
              model.Identity.Model.c_str(), model.Identity.Serial.c_str());
}

int Run(const CSimOptions& options, const sigset_t& signals) {
  std::string error, interfaceAddress;
  CRTSPLoop loop;
  Cameras cameras;
  if (!MakeCameras(options, loop, &cameras, &error)) return Fail(error);
  for (const std::string& quirk : options.Quirks)
    if (!ApplyQuirk(cameras, quirk, &error)) return Fail(error);
  if (!InterfaceAddress(options.InterfaceName, &interfaceAddress))
    return Fail("the interface " + options.InterfaceName + " does not exist or has no IPv4 address");

  std::vector<CSimCamera*> all;
  std::vector<CCameraModel*> models;
  for (const auto& camera : cameras) {
    camera->Model().InterfaceAddress = interfaceAddress;
    if (!camera->PowerOn(&error)) return Fail(error);
    all.push_back(camera.get());
    models.push_back(&camera->Model());
    PrintCamera(camera->Model());
  }
  CDiscovery discovery;
  CControl control(all, [] { kill(getpid(), SIGTERM); });
  if (!discovery.Start(interfaceAddress, models, &error) || !control.Start(options.Control, &error))
    return Fail(error);
  std::printf("control  http://%s/cameras\nready\n", options.Control.c_str());
  std::fflush(stdout);

  int signal = 0;
  sigwait(&signals, &signal);
  control.Stop();
  discovery.Stop();
  for (const auto& camera : cameras) camera->PowerOff();
  return 0;
}

int Main(int argc, char** argv) {
  CSimOptions options;
  CLI::App app("Simulated ONVIF cameras on addresses of their own");
  app.add_option("--camera", options.Kinds, "A camera at the next address from 127.0.0.11: ptz, door or alarm");
  app.add_option("--camera-at", options.KindsAt, "A camera at an address of its own: ADDRESS:KIND");
  app.add_option("--user", options.User, "User name of all cameras")->capture_default_str();
  app.add_option("--password-env", options.PasswordEnv,
                 "Environment variable with the password (default: 'secret')");
  app.add_option("--interface", options.InterfaceName, "Interface of WS-Discovery and alarms")
      ->capture_default_str();
  app.add_option("--http-port", options.HTTPPort, "HTTP port of all cameras")->capture_default_str();
  app.add_option("--rtsp-port", options.RTSPPort, "RTSP port of all cameras")->capture_default_str();
  app.add_option("--sip-port", options.SIPPort, "SIP port of all door stations")->capture_default_str();
  app.add_option("--sound-folder", options.SoundFolder,
                 "Where the speakers of door stations keep their latest calls as WAV files");
  app.add_option("--control", options.Control, "Where state is asked and switches are turned")
      ->capture_default_str();
  app.add_option("--quirk", options.Quirks,
                 "[N:]NAME=VALUE, for camera N (from 1) or for all; see --list-quirks");
  app.add_flag_callback(
      "--list-quirks",
      [] {
        std::fputs(QuirkHelp().c_str(), stdout);
        std::exit(0);
      },
      "Lists the switches and ends");
  app.footer(std::string("The control address speaks HTTP and JSON:\n") + CONTROL_HELP);
  CLI11_PARSE(app, argc, argv);
  if (options.Kinds.empty() && options.KindsAt.empty()) options.Kinds = {"ptz", "door", "alarm"};

  // All threads inherit the mask; only sigwait sees the end coming.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGPIPE, SIG_IGN);
  gst_init(nullptr, nullptr);
  return Run(options, signals);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    return Fail(error.what());
  }
}
