// What tells the host about the camera's streams: sinks and masks, descriptors, RTSP profiles, recording,
// statistics.
#include "camera/ONVIFCam.h"
#include "camera/ONVIF_proc.h"
#include "host/system/system.h"

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <vector>

namespace {

constexpr int RATIO_WIDE = 1777;      // 16:9, times 1000
constexpr int RATIO_STANDARD = 1333;  // 4:3

int HundredTimes(double rate) {
  return static_cast<int>(rate * 100);
}

}  // namespace

// ---- Sinks and the stream mask ----

int CONVIFCam::FixResMask(unsigned* mask) const {
  const int streams = m_Model.NSettings(RTSP_PROFILE_JPEG);
  for (int i = 0; i < CCameraStreams::JPEG_STREAMS; ++i) {
    if ((*mask & (1U << i)) == 0 || i < streams) continue;
    *mask &= ~(1U << i);
    if (streams > 0) *mask |= 1U << (streams - 1);
  }
  return streams;
}

// Under the main-thread lock, as the sinks are: of two threads that compute the mask, the later one stores it
// last.
void CONVIFCam::UpdateResMask() {
  const CMainThreadLock main;
  if (!main) return;
  unsigned mask = NSinks() > 0 ? GetResMask() : 0;
  FixResMask(&mask);
  m_dwResMask = mask;
  m_Streams.Mask(mask);
}

void CONVIFCam::ResMode(int mode) {
  m_iResMode = mode;
  UpdateResMask();
  CVideoSystem::ResMode(mode);
  m_Wake.SetEvent();
}

void CONVIFCam::SinkAdded(CComponentSink* /*sink*/) {
  UpdateResMask();
  StopFlag(false);
  RestartActivityTimer();
  if (!ThreadRunning()) StartThread("ONVIFCam " + Name());
  m_Wake.SetEvent();
}

void CONVIFCam::SinkRemoved(CComponentSink* /*sink*/) {
  UpdateResMask();
  m_Wake.SetEvent();
  if (NSinks() == 0 && TrackerOn()) TrackerOff();
}

void CONVIFCam::AddRTSPSink(CObjectSink* sink) {
  const CGXLock lock(m_RTSPSinkLock);
  if (std::find(m_RTSPSinks.begin(), m_RTSPSinks.end(), sink) == m_RTSPSinks.end()) m_RTSPSinks.push_back(sink);
}

void CONVIFCam::RemoveRTSPSink(CObjectSink* sink) {
  const CGXLock lock(m_RTSPSinkLock);
  std::erase(m_RTSPSinks, sink);
}

// ---- Descriptors ----

int CONVIFCam::NResolutions(RTSP_PROFILE_TYPE type) {
  return m_Model.NSettings(type);
}

int CONVIFCam::EncodeTypeOf(const CONVIFUserSettings& entry) const {
  return m_Model.IsH264(entry) ? FRAME_KIND_H264 : FRAME_KIND_JPEG;
}

void CONVIFCam::LoadResolutionDescriptor(int index, CResolutionDescriptor* descriptor, RTSP_PROFILE_TYPE type) {
  const CUserSettingsRef entry = m_Model.UserSettings(type, index);
  if (entry == nullptr) return;
  descriptor->ResNo(index);
  descriptor->Description(entry->Name());
  descriptor->DriverDataInt((IndexOfProfile(entry->ProfileToken()) << 16) |
                            (IndexOfEncoder(entry->EncoderToken()) << 8));
  descriptor->DriverDataPtr(entry.get());
  descriptor->Size(entry->Settings()->Resolution());
  descriptor->EncodeType(EncodeTypeOf(*entry));
}

int CONVIFCam::CameraOrientation(RTSP_PROFILE_TYPE type, int index) {
  const int count = NResolutions(type);
  const CUserSettingsRef entry = m_Model.UserSettings(type, index >= 0 && index < count ? index : 0);
  if (entry == nullptr) return 0;
  const GXT_RESOLUTION size = entry->Settings()->Resolution();
  if (size.Height == 0) return 0;
  const long long ratio = 1000LL * size.Width / size.Height;
  return std::llabs(ratio - RATIO_WIDE) < std::llabs(ratio - RATIO_STANDARD) ? 1 : 0;
}

int CONVIFCam::GetRTSPResolution(RTSP_PROFILE_TYPE type, int index) {
  return m_Model.ActiveIndex(type, index);
}

// The choice is what the camera runs; nothing is stored.
void CONVIFCam::SetRTSPResolution(RTSP_PROFILE_TYPE /*type*/, int /*index*/) {}

// ---- RTSP profiles ----

CRTSPProfile* CONVIFCam::LoadRTSPProfile(CResolutionDescriptor* descriptor) {
  const CUserSettingsRef entry = FindUserSettings(descriptor->DriverDataPtr());
  if (entry == nullptr) return nullptr;
  const CProfileRef profile = ProfileByToken(entry->ProfileToken());
  bool inLine = true;
  if (!entry->ReadOnlyProfile()) {
    const CEncoderRef encoder = EncoderByToken(entry->EncoderToken());
    if (encoder == nullptr) return nullptr;
    inLine = encoder->CurrentConfig()->IsSameConfig(entry->Settings());
    if (inLine && profile != nullptr) inLine = profile->VideoEncoderToken() == entry->EncoderToken();
  }
  if (inLine && profile == nullptr) return nullptr;
  if (!inLine || (profile->State() & CProfile::STATE_DESCRIBED) == 0) {
    PushProc(std::make_unique<CCheckUserSet>(entry.get()));
    return nullptr;
  }
  auto rtsp =
      std::make_unique<CRTSPProfile>(CCameraStreams::VideoRTSPProfile(*this, *profile, entry->Transport()));
  const CGXString encoding = profile->VideoEncoderType();
  if (encoding == "JPEG") rtsp->PayloadType(RTSP_PAYLOAD_JPEG);
  if (encoding == "H264") rtsp->PayloadType(RTSP_PAYLOAD_H264);
  return rtsp.release();
}

CRTSPProfile* CONVIFCam::LoadAudioRTSP() {
  const CProfileRef profile = GetAudioProfile();
  if (profile == nullptr) return nullptr;
  auto rtsp = std::make_unique<CRTSPProfile>();
  rtsp->PayloadType(RTSP_PAYLOAD_G711);
  profile->ConfigureAudio(rtsp.get());
  rtsp->UserName(UserName());
  rtsp->Password(Password());
  return rtsp.release();
}

// ---- Recording ----

int CONVIFCam::DVREncodeType() {
  if (!m_RunState.Has(STATE_PROFILES)) return -1;
  const CUserSettingsRef settings = m_Model.DVRSettings(DVRResolutionIndex());
  return settings != nullptr ? EncodeTypeOf(*settings) : FRAME_KIND_JPEG;
}

GXT_RESOLUTION CONVIFCam::DVREncodeDimensions() {
  const CProfileRef profile = m_RunState.Has(STATE_PROFILES) ? DVRProfile() : nullptr;
  return profile != nullptr ? profile->CurrentSettings()->Resolution() : GXT_RESOLUTION{640, 480};
}

int CONVIFCam::DVREncodeProfile(CRTSPProfile* rtsp) {
  const CProfileRef profile = DVRProfile();
  if (profile == nullptr) return 0;
  profile->ConfigureVideo(rtsp);
  return 1;
}

void CONVIFCam::StartDVR() {
  const CMainThreadLock main;
  const int type = DVREncodeType();  // -1: not loaded
  if (!main || type < 0) return;
  CVideoSink* const sink = DVRSink();
  if (type == FRAME_KIND_H264) {
    if (FindSink(sink)) {
      RemoveVideoSink(sink, 1);
      SinkRemoved(sink);
    }
    m_Streams.DVRActive(true);
    m_Wake.SetEvent();
    return;
  }
  // Recorders set up long ago count on this difference; a stream below 0 is taken as the first. The index comes
  // from the record, and may be anything.
  sink->CameraRes(std::max(DVRResolutionIndex(), -1) - m_Model.NSettings(RTSP_PROFILE_H264));
  m_Streams.DVRActive(false);
  CVideoSystem::StartDVR();
}

void CONVIFCam::StopDVR() {
  m_Streams.DVRActive(false);
  CVideoSystem::StopDVR();
}

// ---- Statistics ----

void CONVIFCam::GetVideoStats(CGXMSG* msg) {
  std::vector<std::pair<CGXString, int>> takers;
  ForEachSink([&takers](CComponentSink* sink) {
    const auto* const video = dynamic_cast<CVideoSink*>(sink);
    takers.emplace_back(video != nullptr ? video->Name() : "ERROR",
                        video != nullptr ? HundredTimes(video->OutgoingFPS()) : 0);
  });
  {
    const CGXLock lock(m_RTSPSinkLock);
    for (CObjectSink* const sink : m_RTSPSinks) takers.emplace_back(sink->SinkName(), sink->SinkRate());
  }
  if (m_Streams.DVRActive()) takers.emplace_back("H264-DVR", m_Streams.DVRRate());
  msg->PutInt(HundredTimes(IncomingFPS()));
  msg->PutInt(Motion());
  msg->PutInt(static_cast<int>(takers.size()));
  for (const auto& [name, rate] : takers) {
    msg->PutString(name);
    msg->PutInt(rate);
  }
}
