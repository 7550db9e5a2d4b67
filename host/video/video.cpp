#include "host/video/video.h"

#include "host/base/gxassert.h"
#include "host/system/system.h"
#include "host/video/frame_pool.h"
#include "host/video/rate_window.h"

#include <algorithm>
#include <chrono>
#include <string_view>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int MOST_STREAMS = 3;
constexpr std::string_view JPEG_BEGIN{"\xff\xd8", 2};  // ITU-T T.81 B.1.1.3, SOI

// Takes the camera's JPEG pictures for the recorder.
class CDVRSink : public CVideoSink {
 public:
  explicit CDVRSink(const CVideoSystem* camera);
  ~CDVRSink() override;
  void OnFrame(const CJPEGBuffer* frame) override;

 private:
  const CVideoSystem* const m_pCamera;
};

CDVRSink::CDVRSink(const CVideoSystem* camera) : CVideoSink("DVR"), m_pCamera(camera) {}
CDVRSink::~CDVRSink() = default;

void CDVRSink::OnFrame(const CJPEGBuffer* frame) {
  if (const std::shared_ptr<CDVRTarget> target = m_pCamera->DVRTarget())
    target->DeliverFrame(std::make_unique<CFrameData>(FRAME_KIND_JPEG, nullptr, 0, 0, m_pCamera, frame->Data(),
                                                      frame->Length(), frame->MotionData(), 0));
}

}  // namespace

struct CVideoSink::Rate : CRateWindow {};

CVideoSink::CVideoSink(CGXString name) : m_Name(std::move(name)), m_pRate(std::make_unique<Rate>()) {}
CVideoSink::~CVideoSink() = default;

double CVideoSink::OutgoingFPS() const {
  return m_pRate->PerSecond();
}
void CVideoSink::OnFrame(const CJPEGBuffer*) {}

void CVideoSink::ProcessFrame(const CJPEGBuffer* frame) {
  m_pRate->Count();
  OnFrame(frame);
}

CObjectSink::~CObjectSink() = default;

struct CVideoSystem::State {
  mutable CGXCritical Lock;
  CGXString UserName GUARDED_BY(Lock), Password GUARDED_BY(Lock);
  std::shared_ptr<CDVRTarget> Target GUARDED_BY(Lock);

  CFramePool Pool;
  CRateWindow Incoming;
  std::atomic<Clock::time_point> LastSign{
      Clock::now()};  // the last picture, or when nobody or a new viewer watched
};

CVideoSystem::CVideoSystem(CSystemComponentDef* definition)
    : CSystemComponent(definition),
      m_pState(std::make_unique<State>()),
      m_pDVRSink(std::make_unique<CDVRSink>(this)) {}

CVideoSystem::~CVideoSystem() = default;

CGXString CVideoSystem::UserName() const {
  CGXLock lock(m_pState->Lock);
  return m_pState->UserName;
}

void CVideoSystem::UserName(const CGXString& user) {
  CGXLock lock(m_pState->Lock);
  m_pState->UserName = user;
}

CGXString CVideoSystem::Password() const {
  CGXLock lock(m_pState->Lock);
  return m_pState->Password;
}

void CVideoSystem::Password(const CGXString& password) {
  CGXLock lock(m_pState->Lock);
  m_pState->Password = password;
}

// ---- Sinks ----

void CVideoSystem::AddVideoSink(CComponentSink* sink) {
  const CMainThreadLock main;
  if (main && !Leaving() && AddSinkEntry(sink)) SinkAdded(sink);
}

void CVideoSystem::RemoveVideoSink(CComponentSink* sink, int quiet) {
  const CMainThreadLock main;  // a cancelled thread goes on without: the sink is about to be deleted
  if (RemoveSinkEntry(sink) && quiet == 0) SinkRemoved(sink);
}

unsigned CVideoSystem::GetResMask() const {
  unsigned mask = 0;
  ForEachSink([&mask](const CComponentSink* sink) {
    if (const auto* video = dynamic_cast<const CVideoSink*>(sink))
      mask |= 1u << std::clamp(video->CameraRes(), 0, MOST_STREAMS - 1);
  });
  return mask;
}

// ---- Frames ----

CJPEGBuffer* CVideoSystem::GetFreeFrame() {
  return m_pState->Pool.TakeFree();
}
CJPEGBuffer* CVideoSystem::GetReadyFrame() {
  return m_pState->Pool.TakeReady();
}

void CVideoSystem::SetReadyFrame(CJPEGBuffer* frame) {
  if (frame != nullptr && !m_pState->Pool.PutReady(frame)) AssertWrap("video", __LINE__);
}

void CVideoSystem::SetFreeFrame(CJPEGBuffer* frame) {
  if (frame != nullptr && !m_pState->Pool.PutFree(frame)) AssertWrap("video", __LINE__);
}

void CVideoSystem::ProcessFrame(CJPEGBuffer* frame) {
  if (frame == nullptr) return;
  m_pState->Incoming.Count();
  m_pState->LastSign = Clock::now();
  m_bDead = false;
  m_iMotion = frame->MotionData();
  const int last = std::clamp(NResolutions(RTSP_PROFILE_JPEG), 1, MOST_STREAMS) - 1;
  ForEachSink([frame, last](CComponentSink* sink) {
    auto* const video = dynamic_cast<CVideoSink*>(sink);
    if (video != nullptr && std::clamp(video->CameraRes(), 0, last) == frame->ResMode())
      video->ProcessFrame(frame);
  });
}

void CVideoSystem::ProcessVideoChunk(const char* data, int length, int, int) {
  if (data == nullptr || length <= 0) return;
  const std::string_view page(data, static_cast<size_t>(length));
  const size_t begin = page.find(JPEG_BEGIN);
  if (begin == std::string_view::npos) return;
  CJPEGBuffer* const frame = GetFreeFrame();
  if (frame == nullptr) return;
  const std::string_view picture = page.substr(begin);
  frame->SetData(reinterpret_cast<const unsigned char*>(picture.data()), static_cast<int>(picture.size()));
  frame->ResMode(0, 1);
  frame->MotionData(Motion());
  SetReadyFrame(frame);
}

int CVideoSystem::SendAudio(int) {
  return 0;
}

void CVideoSystem::RestartActivityTimer() {
  m_pState->LastSign = Clock::now();
}

void CVideoSystem::ProcessDeadCamera() {
  const auto now = Clock::now();
  if (m_dwDeadPeriod == 0 || NSinks() == 0) {
    m_pState->LastSign = now;
    m_bDead = false;
  } else if (now - m_pState->LastSign.load() >= std::chrono::milliseconds(m_dwDeadPeriod) * m_iDeadStrikes) {
    m_bDead = true;
  }
}

double CVideoSystem::IncomingFPS() const {
  return m_pState->Incoming.PerSecond();
}
int CVideoSystem::CheckLockConfig() {
  return m_bConfigLocked ? 0 : 1;
}

// ---- Recording ----

void CVideoSystem::WantDVR(bool wanted) {
  const CMainThreadLock main;
  if (wanted) {
    m_bDVRFlags |= DVR_FLAG_WANTED;
    if (DVREncodeType() >= 0) StartDVR();  // loaded: its loading sequence has started recording once already
  } else {
    m_bDVRFlags &= static_cast<unsigned char>(~DVR_FLAG_WANTED);
    StopDVR();
  }
}

void CVideoSystem::DVRResolutionIndex(int index) {
  if (m_iDVRIndex.exchange(index) != index) ++m_dwDVRGeneration;
}

void CVideoSystem::DVRTarget(std::shared_ptr<CDVRTarget> target) {
  CGXLock lock(m_pState->Lock);
  m_pState->Target.swap(target);  // the former one goes when the lock is released
}

std::shared_ptr<CDVRTarget> CVideoSystem::DVRTarget() const {
  CGXLock lock(m_pState->Lock);
  return m_pState->Target;
}

void CVideoSystem::StartDVR() {
  const CMainThreadLock main;
  if (!main || Leaving()) return;
  AddSinkEntry(m_pDVRSink.get());
  SinkAdded(m_pDVRSink.get());  // also when it is attached: the stream that it wants may have changed
}

void CVideoSystem::StopDVR() {
  RemoveVideoSink(m_pDVRSink.get(), 0);
}

// ---- The persisted record ----

bool CVideoSystem::ReadData(CGXFile* file, int) {
  CGXString user, password;
  int mode = 0, flags = 0, index = 0;
  if (file->ReadString(&user) == 0) return false;
  UserName(user);
  if (file->ReadString(&password) == 0) return false;
  Password(password);
  if (file->ReadInt(&mode) == 0) return false;
  m_iResMode = mode;
  if (file->ReadInt(&flags) == 0) return false;
  m_bDVRFlags = static_cast<unsigned char>(flags);
  if (file->ReadInt(&index) == 0) return false;
  DVRResolutionIndex(index);
  return true;
}

bool CVideoSystem::WriteData(CGXFile* file, int) {
  return file->WriteString(UserName()) != 0 && file->WriteString(Password()) != 0 &&
         file->WriteInt(m_iResMode) != 0 && file->WriteInt(m_bDVRFlags) != 0 &&
         file->WriteInt(m_iDVRIndex) != 0;
}

// ---- A camera that can do none of it ----

void CVideoSystem::FindNewDevices(CGXString, CGXString, CGXObList*) {}
void CVideoSystem::ResMode(int mode) {
  m_iResMode = mode;
}
bool CVideoSystem::IsVelmoraDevice() {
  return false;
}
CGXString CVideoSystem::EDRVName() {
  return {};
}
int CVideoSystem::CameraFlags() {
  return 0;
}
int CVideoSystem::NResolutions(RTSP_PROFILE_TYPE) {
  return 0;
}
void CVideoSystem::LoadResolutionDescriptor(int, CResolutionDescriptor*, RTSP_PROFILE_TYPE) {}
int CVideoSystem::GetRTSPResolution(RTSP_PROFILE_TYPE, int) {
  return -1;
}
void CVideoSystem::SetRTSPResolution(RTSP_PROFILE_TYPE, int) {}
CRTSPProfile* CVideoSystem::LoadRTSPProfile(CResolutionDescriptor*) {
  return nullptr;
}
CRTSPProfile* CVideoSystem::LoadAudioRTSP() {
  return nullptr;
}
void CVideoSystem::AddRTSPSink(CObjectSink*) {}
void CVideoSystem::RemoveRTSPSink(CObjectSink*) {}
int CVideoSystem::DVREncodeType() {
  return -1;
}
GXT_RESOLUTION CVideoSystem::DVREncodeDimensions() {
  return {};
}
int CVideoSystem::DVREncodeProfile(CRTSPProfile*) {
  return 0;
}
int CVideoSystem::CameraOrientation(RTSP_PROFILE_TYPE, int) {
  return 0;
}
bool CVideoSystem::HasAudioRX() {
  return false;
}
int CVideoSystem::BeginReceiveAudioFrom(CIntercomClient*) {
  return 0;
}
int CVideoSystem::StopReceiveAudio() {
  return 0;
}
void CVideoSystem::GetONVIFConfig(CGXMSG*) {}
void CVideoSystem::SetONVIFConfig(CGXMSG*) {}
int CVideoSystem::MoveFrame(int, int, int, int) {
  return 0;
}
int CVideoSystem::StopMove() {
  return 0;
}
int CVideoSystem::ZoomInOut(int) {
  return 0;
}
int CVideoSystem::PresetControl(int, int) {
  return 0;
}
int CVideoSystem::NPresets() {
  return 0;
}
CGXString CVideoSystem::PresetName(int) {
  return {};
}
GXT_SERVICE_REPORT CVideoSystem::ServiceReport() {
  return {};
}

GXT_REPORT CVideoSystem::EventReport() {
  return {};
}

std::vector<GXT_STREAM_REPORT> CVideoSystem::StreamReports() {
  return {};
}

void CVideoSystem::AddONVIF_Client(CNotifySink*) {}
void CVideoSystem::RemoveONVIF_Client(CNotifySink*) {}
void CVideoSystem::OnComponentIdle() {}

void CVideoSystem::GetVideoStats(CGXMSG* msg) {
  msg->PutInt(static_cast<int>(IncomingFPS() * 100));
  msg->PutInt(Motion());
  msg->PutInt(0);
}
