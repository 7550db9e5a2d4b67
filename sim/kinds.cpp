// The kinds of camera that can be simulated.
#include "sim/model.h"

#include <cstdio>

namespace {

struct CKindDef {
  const char *Kind, *Name, *Manufacturer, *Model, *Firmware, *SerialFormat, *HardwareId, *SOAPPrefix;
};

constexpr CKindDef KINDS[] = {
    {"ptz", "Dome", "Acme", "SpeedDome 20", "2.4.1", "ACM-20-%06d", "HW-7", "s"},
    {"door", "Door", "VIVOTEK", "IP8133W", "IP8133W-VVTK-0303a", "0002D1%06X", "IP8133W-1", "SOAP-ENV"},
    {"alarm", "Yard", "Orvell", "OV-4 Bullet", "5.0.12", "ORV%09d", "OV4-B", "env"},
};

const CKindDef* FindKind(const std::string& kind) {
  for (const CKindDef& def : KINDS)
    if (kind == def.Kind) return &def;
  return nullptr;
}

template <typename... Args>
std::string Format(const char* format, Args... args) {
  char text[128];
  std::snprintf(text, sizeof text, format, args...);
  return text;
}

CVideoEncoder H264(const char* token, const char* name, int width, int height, int bitrate,
                   const char* profile) {
  return {token, name, "H264", width, height, 60, 15, 1, bitrate, 15, profile};
}

CVideoEncoder Jpeg(const char* token, const char* name, int width, int height) {
  return {token, name, "JPEG", width, height, 60, 10, 1, 4096, 0, "Baseline"};
}

void FillPtz(CCameraModel& m) {
  m.Encoders = {H264("VE_1", "Main H264", 1280, 720, 2048, "Main"), Jpeg("VE_2", "JPEG VGA", 640, 480),
                Jpeg("VE_3", "JPEG small", 320, 240)};
  m.Profiles = {{"Profile_1", "mainStream", "/Profile_1", "VE_1", true, true},
                {"Profile_2", "jpegStream", "/Profile_2", "VE_2", true, true},
                {"Profile_3", "thumbStream", "/Profile_3", "VE_3", false, true}};
  m.Presets = {
      {"1", "Entrance", {0, 0, 0}}, {"2", "Car park", {0.5, -0.2, 0.3}}, {"3", "Overview", {-0.6, 0.3, 0}}};
}

void FillDoor(CCameraModel& m) {
  m.Encoders = {Jpeg("mjpeg", "mjpeg", 640, 480), H264("h264", "h264", 640, 480, 1024, "Baseline"),
                Jpeg("mjpeg-s", "mjpeg small", 176, 144)};
  m.Profiles = {{"p0", "live", "/live.sdp", "mjpeg", true, false},
                {"p1", "live2", "/live2.sdp", "h264", true, false},
                {"p2", "live3", "/live3.sdp", "mjpeg-s", false, false}};
}

void FillAlarm(CCameraModel& m) {
  m.Encoders = {H264("000", "VideoEncoder000", 640, 360, 1024, "High"),
                Jpeg("001", "VideoEncoder001", 640, 480), Jpeg("002", "VideoEncoder002", 320, 240)};
  m.Profiles = {{"MediaProfile000", "Profile000", "/av?ch=1&sub=0", "000", true, false},
                {"MediaProfile001", "Profile001", "/av?ch=1&sub=1", "001", false, false},
                {"MediaProfile002", "Profile002", "/av?ch=1&sub=2", "002", false, false}};
}

}  // namespace

std::vector<std::string> ScopesOf(const CSimIdentity& identity) {
  std::string name = identity.Name;
  for (size_t blank; (blank = name.find(' ')) != std::string::npos;) name.replace(blank, 1, "%20");
  const std::string base = "onvif://www.onvif.org/";
  std::vector<std::string> scopes = {base + "type/video_encoder", base + "Profile/Streaming",
                                     base + "hardware/" + identity.HardwareId, base + "name/" + name};
  if (identity.Kind == "ptz") scopes.push_back(base + "type/ptz");
  return scopes;
}

bool DescribeKind(const std::string& kind, int number, CSimIdentity* identity) {
  const CKindDef* def = FindKind(kind);
  if (def == nullptr) return false;
  *identity = {def->Kind,         Format("%s %d", def->Name, number),
               def->Manufacturer, def->Model,
               def->Firmware,     Format(def->SerialFormat, number),
               def->HardwareId,   Format("5f1b0000-7c3e-4a8d-9e21-%012x", number),
               def->SOAPPrefix};
  return true;
}

void FillKind(CCameraModel& model) {
  if (model.Identity.Kind == "ptz") FillPtz(model);
  if (model.Identity.Kind == "door") FillDoor(model);
  if (model.Identity.Kind == "alarm") FillAlarm(model);
}
