#include "sim/control.h"

#include "sim/alarm.h"

#include <httplib.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <thread>

namespace {

using Json = nlohmann::json;

constexpr char JSON_TYPE[] = "application/json";
constexpr int MOST_TIMES = 10000;

void Reply(httplib::Response& out, const Json& json) {
  out.set_content(json.dump(1) + "\n", JSON_TYPE);
}

void Refuse(httplib::Response& out, const std::string& error) {
  out.status = 400;
  Reply(out, {{"error", error}});
}

// All switches or none: a wrong name among right ones changes nothing.
bool SetQuirks(CSimCamera& camera, const Json& json, std::string* error) {
  const std::lock_guard guard(camera.Model().Lock);
  CQuirks quirks = camera.Model().Quirks;
  for (const auto& [name, value] : json.items())
    if (!SetQuirk(quirks, name, value.is_string() ? value.get<std::string>() : value.dump(), error))
      return false;
  camera.Model().Quirks = quirks;
  return true;
}

bool SetPower(CSimCamera& camera, const Json& json, std::string* error) {
  if (json.value("on", false)) return camera.PowerOn(error);
  camera.PowerOff();
  return true;
}

bool SetAddress(CSimCamera& camera, const Json& json, std::string* error) {
  const std::string address = json.value("address", "");
  if (!address.empty()) return camera.Move(address, error);
  *error = "address is missing";
  return false;
}

// {"tone_hz": NUMBER, "level": 0 to 1} for a tone, {"file": PATH} for a WAV file.
bool SetMicrophone(CSimCamera& camera, const Json& json, std::string* error) {
  CMicrophone heard;
  const Json file = json.value("file", Json()), tone = json.value("tone_hz", Json(heard.ToneHz)),
             level = json.value("level", Json(heard.Level));
  if (file.is_string()) {
    if (!LoadSound(file, &heard, error)) return false;
  } else if (!tone.is_number() || !level.is_number() || tone < 0 || tone > 4000 || level < 0 || level > 1) {
    *error = "\"tone_hz\" must be 0 to 4000 and \"level\" 0 to 1";
    return false;
  } else {
    heard.ToneHz = tone;
    heard.Level = level;
  }
  const std::lock_guard guard(camera.Model().Lock);
  camera.Model().Microphone = heard;
  return true;
}

// {"on": BOOL, "times": NUMBER}; once when it does not say how often.
bool ReadSignal(const Json& json, bool* on, int* times, std::string* error) {
  const Json flag = json.value("on", Json()), count = json.value("times", Json(1));
  if (!flag.is_boolean() || !count.is_number_integer() || count < 1 || count > MOST_TIMES) {
    *error = "\"on\" must be true or false, and \"times\" 1 to " + std::to_string(MOST_TIMES);
    return false;
  }
  *on = flag;
  *times = count;
  return true;
}

bool RaiseMotion(CSimCamera& camera, const Json& json, std::string* error) {
  bool on = false;
  int times = 0;
  if (!ReadSignal(json, &on, &times, error)) return false;
  camera.Motion(on, times);
  return true;
}

bool RaiseAlarm(CSimCamera& camera, const Json& json, std::string* error) {
  bool on = false;
  int times = 0;
  return ReadSignal(json, &on, &times, error) && SendAlarm(camera.Model(), on, times, error);
}

}  // namespace

struct CControl::CServer {
  httplib::Server HTTP;
  std::thread Thread;
};

CControl::CControl(std::vector<CSimCamera*> cameras, std::function<void()> quit)
    : m_Cameras(std::move(cameras)), m_Quit(std::move(quit)), m_PServer(std::make_unique<CServer>()) {
  httplib::Server& http = m_PServer->HTTP;
  const auto find = [this](const httplib::Request& in) -> CSimCamera* {
    const size_t number = std::strtoul(in.matches[1].str().c_str(), nullptr, 10);
    return number >= 1 && number <= m_Cameras.size() ? m_Cameras[number - 1] : nullptr;
  };
  http.Get("/cameras", [this](const httplib::Request&, httplib::Response& out) {
    Json all = Json::array();
    for (CSimCamera* camera : m_Cameras) all.push_back(camera->State());
    Reply(out, all);
  });
  http.Get(R"(/cameras/(\d+))", [find](const httplib::Request& in, httplib::Response& out) {
    CSimCamera* camera = find(in);
    if (camera == nullptr) return Refuse(out, "no such camera");
    Reply(out, camera->State());
  });
  const auto change = [&](const char* path, bool (*apply)(CSimCamera&, const Json&, std::string*)) {
    http.Post(path, [find, apply](const httplib::Request& in, httplib::Response& out) {
      CSimCamera* camera = find(in);
      if (camera == nullptr) return Refuse(out, "no such camera");
      const Json json = Json::parse(in.body, nullptr, false);
      if (!json.is_object()) return Refuse(out, "the body is no JSON object");
      std::string error;
      if (!apply(*camera, json, &error)) return Refuse(out, error);
      Reply(out, camera->State());
    });
  };
  change(R"(/cameras/(\d+)/quirks)", SetQuirks);
  change(R"(/cameras/(\d+)/power)", SetPower);
  change(R"(/cameras/(\d+)/address)", SetAddress);
  change(R"(/cameras/(\d+)/microphone)", SetMicrophone);
  change(R"(/cameras/(\d+)/motion)", RaiseMotion);
  change(R"(/cameras/(\d+)/alarm)", RaiseAlarm);
  http.Post("/quit", [this](const httplib::Request&, httplib::Response& out) {
    Reply(out, {{"quit", true}});
    m_Quit();
  });
}

CControl::~CControl() {
  Stop();
}

bool CControl::Start(const std::string& where, std::string* error) {
  const size_t colon = where.rfind(':');
  const std::string address = where.substr(0, colon);
  const int port = colon == std::string::npos ? 0 : std::atoi(where.c_str() + colon + 1);
  m_PServer->HTTP.set_keep_alive_max_count(1);
  m_PServer->HTTP.set_socket_options([](socket_t fd) {
    const int on =
        1;  // without SO_REUSEPORT, the library's default, which would hide that the port is occupied
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  });
  if (port <= 0 || !m_PServer->HTTP.bind_to_port(address, port)) {
    *error = "the control address " + where + " cannot be used: in use, or not an ADDRESS:PORT of this machine";
    return false;
  }
  m_PServer->Thread = std::thread([this] { m_PServer->HTTP.listen_after_bind(); });
  while (!m_PServer->HTTP.is_running()) std::this_thread::yield();  // stop() is ignored before
  return true;
}

void CControl::Stop() {
  m_PServer->HTTP.stop();
  if (m_PServer->Thread.joinable()) m_PServer->Thread.join();
}
