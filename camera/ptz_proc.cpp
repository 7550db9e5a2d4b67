#include "camera/ptz_proc.h"

#include "camera/ONVIFCam.h"
#include "onvif/namespaces.h"
#include "onvif/soap_request.h"

#include <charconv>
#include <string>

namespace {

constexpr int ZOOM_STEPS = 8;          // from one end of the range to the other
constexpr double ZOOM_RANGE_OPEN = 1;  // of a camera that names none

bool MovesInPicture(const CProfile& profile) {
  return profile.PTZRelPositionSpace() == CONVIFCam::SPACE_FIELD_OF_VIEW;
}

CSOAPRequest MakeRequest(CONVIFCam* camera, const CProfile& profile, const char* operation) {
  CSOAPRequest request(camera->PTZURL(), operation, NS_ONVIF_PTZ, camera->CreateLoginHeader());
  request.Element()->AddValue("ProfileToken", profile.Token());
  return request;
}

// With two places behind a point, also where the host's language writes a comma.
std::string Decimal(double value) {
  char text[400];  // the longest double has 309 places before the point
  return std::string(text, std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 2).ptr);
}

}  // namespace

int CCamMoveProc::DoProc(CONVIFCam* camera) {
  const CProfileRef profile = camera->RelativeMoveProfile();
  if (profile == nullptr) return 0;
  const bool inPicture = MovesInPicture(*profile);
  CSOAPRequest request = MakeRequest(camera, *profile, inPicture ? "RelativeMove" : "ContinuousMove");
  CGXString vector;
  vector.Format(R"(<PanTilt x="%s" y="%s" xmlns="%s"/>)", Decimal(m_iPan / 100.0).c_str(),
                Decimal(0.0 - m_iTilt / 100.0).c_str(), NS_ONVIF_SCHEMA);
  request.Element()->AddValue(inPicture ? "Translation" : "Velocity", vector);
  return request.Send() != nullptr;
}

int CCamZoomProc::DoProc(CONVIFCam* camera) {
  const CProfileRef profile = camera->RelativeMoveProfile();
  if (profile == nullptr) return 0;
  const GXT_PTZ_RANGE zoom = profile->RangeZoom();
  double range = zoom.Max - zoom.Min;
  if (range == 0) range = ZOOM_RANGE_OPEN;
  const double step = range / ZOOM_STEPS;
  CSOAPRequest request = MakeRequest(camera, *profile, "RelativeMove");
  CGXString vector;
  vector.Format(R"(<Zoom x="%s" xmlns="%s"/>)", Decimal(m_iDirection > 0 ? -step : step).c_str(),
                NS_ONVIF_SCHEMA);
  request.Element()->AddValue("Translation", vector);
  return request.Send() != nullptr;
}

int CCamStopProc::DoProc(CONVIFCam* camera) {
  const CProfileRef profile = camera->RelativeMoveProfile();
  if (profile == nullptr) return 0;
  if (MovesInPicture(*profile)) return 1;
  CSOAPRequest request = MakeRequest(camera, *profile, "Stop");
  request.Element()->AddValue("PanTilt", "true");
  request.Element()->AddValue("Zoom", "true");
  return request.Send() != nullptr;
}

int CCamPresetControl::DoProc(CONVIFCam* camera) {
  const CProfileRef profile = camera->RelativeMoveProfile();
  if (profile == nullptr) return 0;
  const auto preset = profile->Preset(m_iIndex);
  if (preset == nullptr) return 0;
  CSOAPRequest request = MakeRequest(camera, *profile, m_iStore != 0 ? "SetPreset" : "GotoPreset");
  request.Element()->AddValue("PresetToken", preset->Token());
  return request.Send() != nullptr;
}
