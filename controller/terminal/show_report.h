// What `controller show` says of a camera.
#pragma once

#include "controller/site/camera_config.h"
#include "controller/site/camera_status.h"

#include <memory>
#include <string>
#include <vector>

// How one of the camera's streams is opened.
struct CStreamAccess {
  RTSP_PROFILE_TYPE List;
  std::unique_ptr<CRTSPProfile> Profile;
};

struct CCameraSheet {
  CCameraStatus Status;
  std::string User;
  unsigned Options = 0;  // VIDEO_OPTION_...
  CCameraConfig Config;
  std::vector<CStreamAccess> Accesses;
};

std::string SheetsText(const std::vector<CCameraSheet>& sheets);
std::string SheetsJSON(const std::vector<CCameraSheet>& sheets);  // {"cameras": [...]}
