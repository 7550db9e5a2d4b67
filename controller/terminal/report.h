// Camera states as text for people and as JSON for programs.
#pragma once

#include "controller/core/printable.h"
#include "controller/site/camera_status.h"
#include "host/system/component.h"

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

// A few lines that show a camera, each at most `width` characters.
std::vector<std::string> CameraLines(const CCameraStatus& status, size_t width);

// name, id, type, manufacturer, model, serial, firmware, service_url; state ("running" when every step is done)
// and, where there is one, reason; steps (trace lines in order); streams; motion (last level: -1 unknown, 0
// none, 100 motion); events (how many times motion or an alarm was reported); commands (what a demonstration
// asked of it, each with name and seen); jpeg_frames and h264_frames (pictures delivered); pictures and
// recordings (paths); dropped_frames (that should be in a recording and are not); seconds_to_running and
// seconds_to_picture since the camera was started (null: never). Of a door station also what CallsJSON gives.
nlohmann::json CameraJSON(const CCameraStatus& status);

// calls (placed, accepted, declined, timed_out, cancelled), call_state (idle, calling, ringing or talking),
// speaker_packets (sent to it), microphone_packets (heard of it), microphone_lost and
// microphone_longest_gap_ms.
nlohmann::json CallsJSON(const CCallCounts& calls);
std::string CallsText(const CCallCounts& calls);

// {"cameras": [...]}, the summary of a run.
std::string SummaryText(const std::vector<CCameraStatus>& cameras);

// Columns aligned under their headings; the first row is the headings.
std::string Table(const std::vector<std::vector<std::string>>& rows);

// Cameras that a search has found, as a table or as {"cameras": [...]}.
std::string FoundTable(const std::vector<std::unique_ptr<CDeviceConfig>>& found);
std::string FoundJSON(const std::vector<std::unique_ptr<CDeviceConfig>>& found);
