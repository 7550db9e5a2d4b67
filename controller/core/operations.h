// What can be asked of a running controller: by the commands of a terminal, and by whatever else speaks JSON.
//
// A request is an object with "do", the name of an operation, and its arguments:
//   {"do": "move", "camera": "Dome", "pan": 20, "tilt": 0}
// An answer has "ok"; when that is false, "error" says why; "text" is the answer as people read it.
// An operation is one row of a table: of operations.cpp, or of a file of its own for a further subject.
#pragma once

#include "controller/core/event_list.h"
#include "controller/panel/panel.h"
#include "controller/site/camera.h"
#include "controller/site/camera_removal.h"

#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <vector>

class CSiteKeeper;

// What the operations work on.
struct CRunningSite {
  std::vector<std::unique_ptr<CCamera>> Cameras;
  CEventList Events;
  CCallBook Calls;
  std::unique_ptr<CPanel> Panel;  // from the controller's start to its end

  // Cameras that are being removed, until that has ended, and who they were: a search does not bring them back.
  std::vector<std::shared_ptr<CCameraRemoval>> Removals;
  std::vector<CIdentityTexts> Removed;
  CSiteKeeper* Keeper = nullptr;
  std::function<void(CVideoSystem*)> Watch;  // takes a camera of the system's list into Cameras and starts it

  CCamera* ByID(int id) const;  // null when there is none
};

// Asked again and again, under the main-thread lock, until it gives something else than null.
using CAnswer = std::function<nlohmann::json()>;

struct COperation {
  const char* Name;
  CAnswer (*Begin)(CRunningSite& site, const nlohmann::json& request);  // main thread, under its lock
};

// Begins what the request asks for. Anything that is wrong with it is told by the answer.
CAnswer BeginOperation(CRunningSite& site, const std::string& request);

std::span<const COperation> StreamOperations();  // encoders, streams, set-stream, remove-stream
std::span<const COperation> CameraOperations();  // remove, rename, password
std::span<const COperation> PanelOperations();   // ring, cancel, accept, decline, hang-up, talk, calls

// ---- For operations ----
CAnswer Ready(nlohmann::json answer);  // with "ok" true
CAnswer Refused(const std::string& why);
nlohmann::json RefusedJSON(const std::string& why);

// An argument, or `otherwise` when it is absent or of another kind.
std::string TextArgument(const nlohmann::json& request, const char* name, const std::string& otherwise = "");
int NumberArgument(const nlohmann::json& request, const char* name, int otherwise = 0);

// The camera that the request names by name, id, service URL or address. Null with a reason.
CCamera* CameraArgument(const CRunningSite& site, const nlohmann::json& request, std::string* error);
CCamera* CameraInService(const CRunningSite& site, const nlohmann::json& request, std::string* error);
