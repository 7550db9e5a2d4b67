#include "controller/terminal/display.h"

#include "controller/core/log.h"
#include "controller/terminal/report.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

namespace {

constexpr size_t DEFAULT_WIDTH = 100, DEFAULT_HEIGHT = 40;  // characters, where the terminal does not tell

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string StateOf(const CCameraStatus& camera) {
  return camera.State + (camera.Reason.empty() ? "" : ": " + camera.Reason);
}

winsize TerminalSize() {
  winsize size{};
  if (ioctl(ResultDescriptor(), TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
    size.ws_col = DEFAULT_WIDTH;
    size.ws_row = DEFAULT_HEIGHT;
  }
  return size;
}

}  // namespace

CDisplay::CDisplay(bool json) : m_bJSON(json), m_bTerminal(isatty(ResultDescriptor()) == 1), m_fStart(Now()) {}

void CDisplay::Update(const std::vector<CCameraStatus>& cameras, const std::string& note) {
  if (m_bTerminal && !m_bJSON) return Redraw(cameras, note);
  for (const CCameraStatus& camera : cameras) Progress(camera);
  if (note != m_Note && !note.empty() && !m_bJSON) WriteResult(Printable(note) + "\n");
  m_Note = note;
}

// Over what was drawn last: cursor up, then each line with the rest of its row erased. What does not fit on the
// terminal is left out, since the cursor cannot go up beyond its first row.
void CDisplay::Redraw(const std::vector<CCameraStatus>& cameras, const std::string& note) {
  const winsize size = TerminalSize();
  std::vector<std::string> lines;
  for (const CCameraStatus& camera : cameras)
    for (std::string& line : CameraLines(camera, size.ws_col)) lines.push_back(std::move(line));
  lines.push_back(Printable(note).substr(0, size.ws_col));
  if (lines.size() > size.ws_row - 1u) {
    lines.resize(size.ws_row > 2 ? size.ws_row - 2u : 1u);
    lines.push_back("... (more than this terminal has room for)");
  }
  std::string text = m_nLines > 0 ? "\033[" + std::to_string(m_nLines) + "A" : "";
  for (const std::string& line : lines) text += "\r" + line + "\033[K\n";
  WriteResult(text + "\033[J");
  m_nLines = lines.size();
}

void CDisplay::Say(const CCameraStatus& camera, const char* what, const std::string& text) const {
  const double seconds = Now() - m_fStart;
  if (m_bJSON) {
    const nlohmann::json line = {
        {"seconds", seconds}, {"camera", camera.Name}, {"id", camera.ID}, {what, text}};
    WriteResult(line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
    return;
  }
  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "[%7.2f] ", seconds);
  WriteResult(stamp + Printable(camera.Name + ": " + text) + "\n");
}

// How long something has taken, once it is known.
void CDisplay::SayOnce(const CCameraStatus& camera, bool* said, const char* what, double seconds) const {
  if (*said || seconds < 0) return;
  *said = true;
  char text[64];
  std::snprintf(text, sizeof text, "%s %.3f s after its start", what, seconds);
  Say(camera, "time", text);
}

// Events, calls, and what was asked of the camera.
void CDisplay::SayNews(const CCameraStatus& camera, Shown* shown) const {
  if (shown->Events != camera.Events) {
    shown->Events = camera.Events;
    Say(camera, "event", "motion or alarm reported (" + std::to_string(camera.Events) + ")");
  }
  if (camera.Calls && camera.Calls->State != std::exchange(shown->Call, camera.Calls->State))
    Say(camera, "call", CallsText(*camera.Calls));
  for (const CAskedCommand& command : camera.Commands) {
    const auto [known, isNew] = shown->Commands.emplace(command.Name, false);
    if (isNew) Say(camera, "command", "asked: " + command.Name);
    if (command.Seen && !std::exchange(known->second, true)) Say(camera, "command", "seen: " + command.Name);
  }
}

void CDisplay::Progress(const CCameraStatus& camera) {
  Shown& shown = m_Shown[camera.ID];
  // Those that are new stand at the end.
  const auto fresh = static_cast<size_t>(camera.LinesSaid - std::exchange(shown.LinesSaid, camera.LinesSaid));
  for (size_t i = camera.Steps.size() - std::min(fresh, camera.Steps.size()); i < camera.Steps.size(); ++i)
    Say(camera, "trace", camera.Steps[i]);
  if (shown.State != StateOf(camera)) Say(camera, "state", shown.State = StateOf(camera));
  SayOnce(camera, &shown.Running, "running", camera.SecondsToRunning);
  SayOnce(camera, &shown.Picture, "first picture", camera.SecondsToPicture);
  SayNews(camera, &shown);
  for (; shown.Recordings < camera.Recordings.size(); ++shown.Recordings)
    Say(camera, "recording", camera.Recordings[shown.Recordings]);
}
