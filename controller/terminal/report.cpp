#include "controller/terminal/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

using nlohmann::json;

namespace {

constexpr const char* FOUND_COLUMNS[] = {"Manufacturer", "Model", "Serial No.", "Firmware", "Service URL"};
constexpr const char* FOUND_KEYS[] = {"manufacturer", "model", "serial", "firmware", "service_url"};

std::string Dump(const json& value) {
  return value.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

std::string Fixed(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

std::string CommandsText(const std::vector<CAskedCommand>& commands) {
  std::string text;
  for (const CAskedCommand& command : commands)
    text += (text.empty() ? "" : ", ") + command.Name + (command.Seen ? " (seen)" : " (not seen)");
  return text;
}

json Seconds(double seconds) {
  return seconds < 0 ? json(nullptr) : json(std::round(seconds * 1000) / 1000);
}

std::string MotionText(int motion) {
  return motion < 0 ? "unknown" : motion == 0 ? "none" : std::to_string(motion);
}

// Where a camera sends several slices a picture.
std::string SlicesText(const CStreamStatus& stream) {
  if (stream.PicturesPerSecond <= 0 || stream.FPS < 1.5 * stream.PicturesPerSecond) return "";
  return " (slices; " + Fixed(stream.PicturesPerSecond, 1) + " pictures)";
}

std::string StreamsText(const CCameraStatus& status) {
  std::string text;
  for (const CStreamStatus& stream : status.Streams)
    text += (text.empty() ? "" : ", ") + stream.Kind + " " + std::to_string(stream.Width) + "x" +
            std::to_string(stream.Height) + " " + Fixed(stream.FPS, 1) + " fps" + SlicesText(stream);
  return text.empty() ? "none" : text;
}

std::string StateText(const CCameraStatus& status) {
  std::string text = status.State;
  if (!status.Reason.empty()) text += ": " + status.Reason;
  if (status.State == "loading" && !status.Step.empty()) text += ": " + status.Step;
  if (status.SecondsToRunning >= 0) text += " (up after " + Fixed(status.SecondsToRunning, 2) + " s";
  if (status.SecondsToPicture >= 0) text += ", first picture " + Fixed(status.SecondsToPicture, 2) + " s";
  return text + (status.SecondsToRunning >= 0 ? ")" : "");
}

}  // namespace

json CallsJSON(const CCallCounts& calls) {
  return {{"calls",
           {{"placed", calls.Placed},
            {"accepted", calls.Accepted},
            {"declined", calls.Declined},
            {"timed_out", calls.TimedOut},
            {"cancelled", calls.Cancelled}}},
          {"call_state", calls.State},
          {"speaker_packets", calls.SpeakerPackets},
          {"microphone_packets", calls.MicrophonePackets},
          {"microphone_lost", calls.Lost},
          {"microphone_longest_gap_ms", calls.LongestGapMs}};
}

std::string CallsText(const CCallCounts& calls) {
  std::string text = calls.State + "; " + std::to_string(calls.Placed) + " placed";
  const std::pair<int, const char*> outcomes[] = {{calls.Accepted, "accepted"},
                                                  {calls.Declined, "declined"},
                                                  {calls.TimedOut, "timed out"},
                                                  {calls.Cancelled, "cancelled"}};
  for (const auto& [count, name] : outcomes)
    if (count > 0) text += ", " + std::to_string(count) + " " + name;
  return text + "; packets to the speaker " + std::to_string(calls.SpeakerPackets) + ", of the microphone " +
         std::to_string(calls.MicrophonePackets);
}

json StreamStateJSON(const CStreamStatus& s) {
  json stream = {{"kind", s.Kind}, {"width", s.Width}, {"height", s.Height}, {"fps", s.FPS}};
  if (s.PicturesPerSecond >= 0) stream["pictures_per_second"] = s.PicturesPerSecond;
  if (!s.State.empty()) stream["state"] = s.State;
  if (!s.Reason.empty()) stream["reason"] = s.Reason;
  if (s.NextTryMs >= 0) stream["next_try_ms"] = s.NextTryMs;
  return stream;
}

json CameraJSON(const CCameraStatus& s) {
  json streams = json::array();
  for (const CStreamStatus& stream : s.Streams) streams.push_back(StreamStateJSON(stream));
  json commands = json::array();
  for (const CAskedCommand& command : s.Commands)
    commands.push_back({{"name", command.Name}, {"seen", command.Seen}});
  json camera = {{"name", s.Name},
                 {"id", s.ID},
                 {"type", s.Type},
                 {"manufacturer", s.Manufacturer},
                 {"model", s.Model},
                 {"serial", s.Serial},
                 {"firmware", s.Firmware},
                 {"service_url", s.ServiceURL},
                 {"state", s.State},
                 {"steps", s.Steps},
                 {"streams", std::move(streams)},
                 {"motion", s.Motion},
                 {"events", s.Events},
                 {"commands", std::move(commands)},
                 {"jpeg_frames", s.JPEGFrames},
                 {"h264_frames", s.H264Frames},
                 {"dropped_frames", s.Dropped},
                 {"pictures", s.Pictures},
                 {"recordings", s.Recordings},
                 {"seconds_to_running", Seconds(s.SecondsToRunning)},
                 {"seconds_to_picture", Seconds(s.SecondsToPicture)}};
  if (s.Calls) camera.update(CallsJSON(*s.Calls));
  if (!s.Reason.empty()) camera["reason"] = s.Reason;
  if (!s.Problem.empty()) camera["problem"] = s.Problem;
  return camera;
}

std::vector<std::string> CameraLines(const CCameraStatus& s, size_t width) {
  std::vector<std::string> lines;
  const auto add = [&lines, width](const std::string& line) { lines.push_back(Cut(Printable(line), width)); };
  add(std::to_string(s.ID) + "  " + s.Name + "   " + s.Manufacturer + " " + s.Model + ", serial " +
      (s.Serial.empty() ? "?" : s.Serial) + "   " + s.ServiceURL);
  add("   " + StateText(s));
  add("   " + Fixed(s.FPS, 1) + " pictures/s   motion " + MotionText(s.Motion) + "   events " +
      std::to_string(s.Events) + "   streams: " + StreamsText(s));
  for (const CStreamStatus& stream : s.Streams)
    if (stream.State == "failed")
      add("   " + stream.Kind + " stream failed: " + stream.Reason +
          (stream.NextTryMs < 0
               ? ""
               : ", tried again in " + std::to_string((stream.NextTryMs + 999) / 1000) + " s"));
  add("   last: " + s.LastLine);
  if (s.Calls) add("   calls: " + CallsText(*s.Calls));
  if (!s.Commands.empty()) add("   asked: " + CommandsText(s.Commands));
  if (!s.Pictures.empty()) add("   pictures " + s.Pictures.back() + " (" + std::to_string(s.JPEGFrames) + ")");
  if (!s.Recordings.empty())
    add("   recording " + s.Recordings.back() +
        (s.H264Frames > 0 ? " (" + std::to_string(s.H264Frames) + " H.264)" : "") +
        (s.Dropped > 0 ? ", " + std::to_string(s.Dropped) + " pictures dropped" : ""));
  if (!s.Problem.empty()) add("   PROBLEM: " + s.Problem);
  return lines;
}

std::string SummaryText(const std::vector<CCameraStatus>& cameras) {
  json list = json::array();
  for (const CCameraStatus& status : cameras) list.push_back(CameraJSON(status));
  return Dump({{"cameras", std::move(list)}});
}

std::string Table(const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths;
  for (const auto& row : rows)
    for (size_t i = 0; i < row.size(); ++i) {
      if (i == widths.size()) widths.push_back(0);
      widths[i] = std::max(widths[i], CharactersIn(row[i]));
    }
  std::string text;
  for (const auto& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i)
      line += row[i] + std::string(i + 1 < row.size() ? widths[i] - CharactersIn(row[i]) + 2 : 0, ' ');
    line.resize(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

std::string FoundTable(const std::vector<std::unique_ptr<CDeviceConfig>>& found) {
  std::vector<std::vector<std::string>> rows(1, {std::begin(FOUND_COLUMNS), std::end(FOUND_COLUMNS)});
  for (const auto& record : found) {
    rows.emplace_back();
    for (const char* column : FOUND_COLUMNS)
      rows.back().push_back(Printable(record->DescriptorVal(column).Str()));
  }
  return Table(rows);
}

std::string FoundJSON(const std::vector<std::unique_ptr<CDeviceConfig>>& found) {
  json list = json::array();
  for (const auto& record : found) {
    json camera = json::object();
    for (size_t i = 0; i < std::size(FOUND_COLUMNS); ++i)
      camera[FOUND_KEYS[i]] = record->DescriptorVal(FOUND_COLUMNS[i]).Str();
    camera["hardware_id"] = record->DescriptorVal("Hardware ID").Str();
    camera["type"] = record->ComponentType();
    list.push_back(std::move(camera));
  }
  return Dump({{"cameras", std::move(list)}});
}
