// What the camera is and how it is stored: construction and end, identity, record, configuration messages.
#include "camera/ONVIFCam.h"

#include "alarm/orvell_alarm_center.h"
#include "audio/audio_out.h"
#include "camera/outbound_call.h"
#include "host/intercom/intercom.h"
#include "host/intercom/rtsp_server.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"
#include "host/system/system.h"
#include "onvif/login_header.h"
#include "onvif/onvif.h"

namespace {

constexpr const char* MAKER_ALARM_BRAND = "Orvell";
constexpr int CONNECTION_URL = 8;  // the user enters a URL
constexpr unsigned OPTIONS_AT_START = 0x14101;
constexpr int DEAD_STRIKES = 2;
constexpr unsigned DEAD_PERIOD_MS = 300000;
constexpr const char* THREAD_NAME_AFTER_MOVE = "ONVIF Cam";

// Versions of the record at which its form changed.
constexpr int RECORD_IDENTITY_LAST = 804;  // up to here the base record comes before the identity
constexpr int RECORD_ODD_ONE = 805;        // was written in the old order all the same
constexpr int RECORD_ODD_ONE_IS = 706;

// The device service of a camera in the controller's own subnet: what the user completes when entering a URL.
CGXString DefaultServiceURL() {
  unsigned netmask = 0, address = 0;
  CGXString subnet, url;
  if (GetNetInfo(0, &netmask, &address, nullptr, 1)) subnet = GXFormatAddress(address & netmask);
  url.Format("http://%s/onvif/device_service", subnet.Str().c_str());
  return url;
}

}  // namespace

CONVIFCam::CONVIFCam(CSystemComponentDef* definition)
    : CVideoSystem(definition),
      CTraceProducer(definition->TypeName()),
      m_Identity(DefaultServiceURL()),
      m_Events(this, &m_RunState, &m_Clock, GetEventPort()),
      m_Loading({this, &m_Identity, &m_Clock, &m_Model, &m_RunState, &m_Events}) {
  m_AudioFormat = {.FormatTag = 1,
                   .Channels = 1,
                   .SamplesPerSecond = 8000,
                   .BytesPerSecond = 16000,
                   .BlockAlign = 2,
                   .BitsPerSample = 16,
                   .ExtraBytes = 0};
  Options(OPTIONS_AT_START);
  m_iDeadStrikes = DEAD_STRIKES;
  m_dwDeadPeriod = DEAD_PERIOD_MS;
  COrvellAlarmCenter::RegisterCamera(this);  // last: from here on it may be told of alarms
}

CONVIFCam::~CONVIFCam() {
  COrvellAlarmCenter::UnRegisterCamera(this);
  m_RunState.Reset();
  StopThread();  // first: it is the one that starts the others
  m_Queue.DropAll();
  StopWorkers();
  FreeEventPort(m_Events.Port());
  const CMainThreadLock lock;  // under which clients come and go
  CIntercomServer::Instance()->RemoveClient(this);
  SetAudioOut(nullptr);
  DropListeners();
}

void CONVIFCam::StopWorkers() {
  m_Streams.Cancel();
  m_Queue.Worker().Cancel();
  m_Events.Cancel();
  m_AudioThread.Cancel();
  m_Streams.Join();
  m_Queue.Worker().Join();
  m_Events.Join();
  m_AudioThread.Join();
}

// ---- Identity ----

int CONVIFCam::ConnectionType() {
  return IsStatic() ? CONNECTION_URL : 0;
}

bool CONVIFCam::IsVelmoraDevice() {
  return m_Identity.Names().Manufacturer == MAKER_ALARM_BRAND;
}

int CONVIFCam::CameraFlags() {
  return CVideoSystem::CameraFlags() | (IsVelmoraDevice() ? CAMERA_FLAG_ALARM_BRAND : 0);
}

CGXString CONVIFCam::EDRVName() {
  const CCameraIdentity::CNames identity = m_Identity.Names();
  return identity.Manufacturer + " " + identity.Model;
}

CGXString CONVIFCam::SerialNo() const {
  return m_Identity.Names().SerialNo;
}

void CONVIFCam::SetConfigURL(CGXString url) {
  if (ServiceURL() == url) return;
  m_Identity.MoveTo(url);
  // What was loaded is that of the camera at the old address, and its streams would go on for ever.
  StopThread();
  LeaveIntercom();
  DropListeners();
  m_Queue.DropAll();
  {
    const CGXLock lock(m_Queue.Worker().StartLock());  // a push meanwhile starts its worker afterwards
    StopWorkers();
    m_Streams.Reset();
    m_Queue.Worker().Reset();
    m_Events.Reset();
    m_AudioThread.Reset();
  }
  ForgetCamera();
  m_RunState.Reset();
  StartThread(THREAD_NAME_AFTER_MOVE);
}

// What the camera at the old address offered.
void CONVIFCam::ForgetCamera() {
  m_Model.ForgetCamera();
  m_Identity.MediaURL(CGXString());
  Options(OPTIONS_AT_START);
  m_iMotionLevel = MOTION_LEVEL_UNKNOWN;
}

bool CONVIFCam::IsSameConfig(CDeviceConfig* record) {
  // The firmware does not count: an upgraded camera is still the same one.
  const CCameraIdentity::CNames identity = m_Identity.Names();
  return identity.Manufacturer == record->DescriptorVal("Manufacturer") &&
         identity.Model == record->DescriptorVal("Model") &&
         identity.SerialNo == record->DescriptorVal("Serial No.") &&
         identity.HardwareID == record->DescriptorVal("Hardware ID");
}

void CONVIFCam::LoadFrom(CDeviceConfig* record) {
  m_Identity.Names({record->DescriptorVal("Manufacturer"), record->DescriptorVal("Model"),
                    record->DescriptorVal("Firmware"), record->DescriptorVal("Serial No."),
                    record->DescriptorVal("Hardware ID")});
  m_Identity.ServiceURL(record->DescriptorVal("Service URL"));
  UserName(record->DescriptorVal("UserName"));
  Password(record->DescriptorVal("Password"));
  UpdateTraceName();
}

void CONVIFCam::UpdateTraceName() {
  const CCameraIdentity::CNames identity = m_Identity.Names();
  const CGXString name = identity.Manufacturer + ":" + identity.Model;
  if (name == TraceName()) return;
  TraceName(name);
  CTraceServer::Instance()->LoadStateFor(this);
}

// ---- Record ----

bool CONVIFCam::WriteData(CGXFile* file, int version) {
  const CCameraIdentity::CNames identity = m_Identity.Names();
  for (const CGXString& text :
       {identity.Manufacturer, identity.Model, identity.Firmware, identity.SerialNo, identity.HardwareID})
    if (!file->WriteString(text)) return false;
  return CVideoSystem::WriteData(file, version) && m_Model.H264Settings()->Write(file, version) &&
         m_Model.JPEGSettings()->Write(file, version) && file->WriteString(ServiceURL()) != 0;
}

bool CONVIFCam::ReadIdentity(CGXFile* file) {
  for (CGXString CCameraIdentity::CNames::*field :
       {&CCameraIdentity::CNames::Manufacturer, &CCameraIdentity::CNames::Model,
        &CCameraIdentity::CNames::Firmware, &CCameraIdentity::CNames::SerialNo,
        &CCameraIdentity::CNames::HardwareID}) {
    CGXString text;
    if (!file->ReadString(&text)) return false;
    m_Identity.Name(field, text);
  }
  return true;
}

bool CONVIFCam::ReadData(CGXFile* file, int version) {
  if (version == RECORD_ODD_ONE) version = RECORD_ODD_ONE_IS;
  if (version > RECORD_IDENTITY_LAST) {
    if (!ReadIdentity(file) || !CVideoSystem::ReadData(file, version)) return false;
  } else {
    if (!CVideoSystem::ReadData(file, version) || !ReadIdentity(file)) return false;
    RegisterEventServer();
  }
  if (!m_Model.ReadUserConfig(file, version, RTSP_PROFILE_H264)) return false;
  if (!m_Model.ReadUserConfig(file, version, RTSP_PROFILE_JPEG)) return false;
  CGXString url;
  if (!file->ReadString(&url)) return false;
  m_Identity.MoveTo(url);
  return true;
}

void CONVIFCam::GetONVIFConfig(CGXMSG* msg) {
  m_Model.Profiles()->WriteTo(msg);
  m_Model.Encoders()->WriteTo(msg);
  m_Model.H264Settings()->WriteTo(msg);
  m_Model.JPEGSettings()->WriteTo(msg);
}

void CONVIFCam::SetONVIFConfig(CGXMSG* msg) {
  const auto h264 = std::make_shared<CONVIFUserConfig>(), jpeg = std::make_shared<CONVIFUserConfig>();
  h264->ReadFrom(msg);
  jpeg->ReadFrom(msg);
  CUserSettingsRef before[CCameraStreams::STREAMS];
  m_Streams.CurrentSettings(&before);
  m_Model.Take(h264, jpeg);
  m_Streams.SettingsReplaced(before);
  UpdateResMask();  // there may be fewer streams now
}

// ---- Clock ----

CONVIFLoginHeader* CONVIFCam::CreateLoginHeader() {
  CCameraClock::CReading clock = m_Clock.Reading();
  return new CONVIFLoginHeader(UserName(), Password(), clock.Time, &clock.Since);
}

// ---- Media model ----

bool CONVIFCam::LoadDefaultUserSettings() {
  const bool done = m_Model.LoadDefaultUserSettings();
  UpdateResMask();  // viewers that were there before the first stream get it now
  return done;
}

bool CONVIFCam::GetCameraAddress(sockaddr_in* address) const {
  const auto profiles = m_Model.Profiles();
  for (const CProfile* profile = profiles->Profiles(); profile != nullptr; profile = profile->Next()) {
    CGXString uri = profile->StreamUri();
    uri.TrimLeft("rtsp://");
    const int slash = uri.Find('/');
    // Callers keep the address that they had when a camera names its streams by a bare host name.
    if (slash < 1) return true;
    *address = {};
    if (ResolveAddress(uri.Left(slash), address, 0)) return true;
  }
  return false;
}
