#include "controller/site/camera.h"

#include "controller/core/atomic_file.h"
#include "controller/recording/picture_clock.h"
#include "host/base/gxfile.h"
#include "host/intercom/intercom.h"
#include "host/system/comm_thread.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int MOST_STREAMS = 3;
constexpr size_t MOST_COMMANDS = 100;            // noted
constexpr int MOST_ENTRIES = 1000;               // of the statistics
constexpr char H264_STREAM_NAME[] = "H264-DVR";  // of the recorded stream in the statistics

std::string FileNameOf(CVideoSystem* video) {
  return std::to_string(video->ID()) + "-" + SafeFileName(video->Name().Str());
}

std::string RetryText(int ms) {
  if (ms < 0) return "";
  return ms == 0 ? ", tried again now" : ", tried again in " + std::to_string((ms + 999) / 1000) + " s";
}

// A fault that is not about the login must not send anybody to look for a password.
std::string WhyNoProfiles(const GXT_SERVICE_REPORT& report) {
  if (report.LoginRefused) return "check user name and password";
  if (!report.Refused.IsEmpty()) return "the camera refused " + report.Refused.Str();
  return "the camera names none";
}

// The encodings of a camera's profiles when none of them can be shown or recorded; empty otherwise.
std::string OnlyForeignEncodings(const CCameraConfig& config) {
  std::string encodings;
  for (const CConfigProfile& profile : config.Profiles) {
    const std::string& encoding = profile.Settings.Encoding;
    if (CGXString(encoding).CompareNoCase("H264") == 0 || CGXString(encoding).CompareNoCase("JPEG") == 0)
      return "";
    if (encodings.find(encoding) == std::string::npos) encodings += (encodings.empty() ? "" : ", ") + encoding;
  }
  return encodings.empty() ? "without video" : encodings;
}

// The H.264 stream, which there is no rate of as long as it has not begun.
CStreamStatus* RecordedStream(CCameraStatus* status) {
  if (status->Streams.empty() || status->Streams.back().Kind != "H264") {
    status->Streams.emplace_back();
    status->Streams.back().Kind = "H264";
  }
  return &status->Streams.back();
}

void Take(const GXT_STREAM_REPORT& report, CStreamStatus* stream) {
  static constexpr const char* names[] = {"", "starting", "running", "failed"};
  stream->State = names[static_cast<int>(report.State)];
  stream->Reason = report.Reason.Str();
  stream->NextTryMs = report.RetryMs;
}

}  // namespace

CIdentityTexts IdentityOf(CSystemComponent* component) {
  CGXFile file;
  component->WriteData(&file, file.Version());
  CGXItems items = file.Items();
  items.Rewind();
  CIdentityTexts texts;
  for (std::string* text :
       {&texts.Manufacturer, &texts.Model, &texts.Firmware, &texts.Serial, &texts.HardwareID})
    if (const std::string* item = items.NextString()) *text = *item;
  return texts;
}

// Looks at one JPEG stream.
class CCamera::CViewer : public CVideoSink {
 public:
  CViewer(const std::string& fileName, int stream, CPictureStore* pictures)
      : CVideoSink("Viewer"), m_FileName(fileName + "-" + std::to_string(stream)), m_pPictures(pictures) {
    CameraRes(stream);
  }
  void OnFrame(const CJPEGBuffer* frame) override {
    const CBytes picture{frame->Data(), static_cast<size_t>(frame->Length())};
    ++m_nFrames;
    JPEGSize(picture, &m_iWidth, &m_iHeight);
    if (m_pPictures != nullptr) m_pPictures->Add(m_FileName, picture);
  }

  int64_t Frames() const { return m_nFrames; }
  CStreamStatus Status() const { return {"JPEG", m_iWidth, m_iHeight, OutgoingFPS(), -1, "", "", -1}; }
  std::string Path() const { return m_pPictures != nullptr ? m_pPictures->LatestPath(m_FileName) : ""; }
  std::string KeptPath() const { return m_pPictures != nullptr ? m_pPictures->KeptPath(m_FileName) : ""; }

 private:
  const std::string m_FileName;
  CPictureStore* const m_pPictures;
  int64_t m_nFrames = 0;  // main thread, like the size
  int m_iWidth = 0, m_iHeight = 0;
};

CCamera::CCamera(CVideoSystem* video, CTraceBook* book, CCameraWishes wishes)
    : m_pVideo(video),
      m_iID(video->ID()),
      m_pBook(book),
      m_Wishes(std::move(wishes)),
      m_FileName(FileNameOf(video)),
      m_Started(std::chrono::steady_clock::now()),
      m_Keeper(video) {
  if (m_Wishes.RecordFolder.empty()) return;
  m_pRecorder = std::make_shared<CRecorder>(m_Wishes.RecordFolder, m_FileName);
  m_pVideo->DVRTarget(m_pRecorder);
}

CCamera::~CCamera() {
  Leave();
  EndRecording();
  m_pBook->Forget(m_iID);
}

void CCamera::Leave() {
  DetachViewers();
  m_pVideo->DVRTarget(nullptr);
}

void CCamera::EndRecording() {
  if (m_pRecorder) m_pRecorder->Stop();
}

void CCamera::Start() {
  // A record that wants the other transport, or no recording, is corrected before anything is opened with it.
  ApplyTransport();
  if (!m_pRecorder && (m_pVideo->DVRFlags() & DVR_FLAG_WANTED) != 0) m_pVideo->WantDVR(false);
  auto* thread = dynamic_cast<CGeneralCommThread*>(m_pVideo);
  CGXString name;
  name.Format("ONVIFCam %s", static_cast<const char*>(m_pVideo->Name()));
  if (thread != nullptr && !thread->ThreadRunning()) thread->StartThread(name);
}

double CCamera::Seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Started).count();
}

bool CCamera::InService() const {
  return CIntercomServer::Instance()->HasClient(m_pVideo->GetIcomClient(ICOM_CLIENT_SELF));
}

bool CCamera::Config(CCameraConfig* config) const {
  CGXMSG msg;
  m_pVideo->GetONVIFConfig(&msg);
  return ReadCameraConfig(msg, config);
}

// Its loading.
bool CCamera::Failed() const {
  return m_pVideo->ServiceReport().State == GXT_REPORT::STATE::Failed || m_pBook->Failed(m_iID);
}

bool CCamera::Tick() {
  NotePicture();
  AnswerRecorder();
  if (!InService()) {
    if (Failed()) m_Reachability.Check(m_pVideo->GetConfigURL().Str());
    return false;
  }
  bool changed = std::exchange(m_bChanged, false);
  if (m_fSecondsToRunning < 0) {
    m_fSecondsToRunning = Seconds();
    changed = true;
  }
  changed |= ApplyTransport();
  changed |= KeepStreams();
  if (!m_bTransportDone && m_Wishes.Transport >= 0) return changed;
  if (!Paused()) {
    AttachViewers();
    changed |= StartRecording();
  }
  return changed;
}

// True when that changed the settings: a camera that rounds has its own values taken over.
bool CCamera::KeepStreams() {
  if (!m_bKeeping) {
    CCameraConfig config;
    if (!Config(&config) || config.Encoders.empty()) return false;
    m_bKeeping = true;
    m_Keeper.Restart(config);
    m_PauseAtMost = std::chrono::steady_clock::now() + APPLIED_WITHIN;
  }
  return std::chrono::steady_clock::now() >= m_PauseAtLeast && m_Keeper.Pass();
}

bool CCamera::Paused() const {
  const auto now = std::chrono::steady_clock::now();
  return now < m_PauseAtLeast || (now < m_PauseAtMost && m_Keeper.Settling());
}

void CCamera::ApplyStreams(const CCameraConfig& config) {
  CCameraConfig before;
  Config(&before);
  const bool jpeg = before.JPEG != config.JPEG, h264 = before.H264 != config.H264;
  // The recorded entry is numbered behind the JPEG entries.
  const bool renumbered = before.JPEG.Streams.size() != config.JPEG.Streams.size();
  if (jpeg) DetachViewers();
  if (m_bDVRDone && (h264 || renumbered || (jpeg && m_pVideo->DVREncodeType() != FRAME_KIND_H264))) {
    m_bDVRDone = false;
    m_pVideo->WantDVR(false);
  }
  CGXMSG msg;
  WriteUserStreams(config, &msg);
  m_pVideo->SetONVIFConfig(&msg);
  m_Keeper.Restart(config);
  const auto now = std::chrono::steady_clock::now();
  m_PauseAtLeast = now + PAUSE_AT_LEAST;
  m_PauseAtMost = now + APPLIED_WITHIN;
  m_bChanged = true;
}

void CCamera::NoteCommand(const std::string& name, bool seen) {
  const auto known = std::ranges::find(m_Commands, name, &CAskedCommand::Name);
  if (known != m_Commands.end()) {
    known->Seen = seen;
  } else if (m_Commands.size() < MOST_COMMANDS) {
    m_Commands.push_back({name, seen});
  }
}

void CCamera::NotePicture() {
  if (m_fSecondsToPicture >= 0) return;
  const bool jpeg = std::ranges::any_of(m_Viewers, [](const auto& viewer) { return viewer->Frames() > 0; });
  if (jpeg || (m_pRecorder && m_pRecorder->Status().Delivered > 0)) m_fSecondsToPicture = Seconds();
}

// Puts the wanted transport into the user's stream settings, once there are any. True when that changed them.
bool CCamera::ApplyTransport() {
  if (m_bTransportDone || m_Wishes.Transport < 0) return false;
  CGXMSG answer;
  CCameraConfig config;
  if (!Config(&config) || (config.H264.Streams.empty() && config.JPEG.Streams.empty())) return false;
  m_bTransportDone = true;
  bool changed = false;
  for (CUserStreams* list : {&config.H264, &config.JPEG})
    for (CUserStream& stream : list->Streams) {
      changed |= stream.Transport != m_Wishes.Transport;
      stream.Transport = m_Wishes.Transport;
    }
  if (!changed) return false;
  WriteUserStreams(config, &answer);
  m_pVideo->SetONVIFConfig(&answer);
  return true;
}

// A viewer for each JPEG stream that the camera has; the camera opens a stream when somebody looks.
void CCamera::AttachViewers() {
  const auto wanted =
      static_cast<size_t>(std::clamp(m_pVideo->NResolutions(RTSP_PROFILE_JPEG), 0, MOST_STREAMS));
  if (m_bAttached && m_Viewers.size() == wanted) return;
  DetachViewers();
  for (; m_Viewers.size() > wanted; m_Viewers.pop_back()) m_nPastFrames += m_Viewers.back()->Frames();
  while (m_Viewers.size() < wanted)
    m_Viewers.push_back(
        std::make_unique<CViewer>(m_FileName, static_cast<int>(m_Viewers.size()), m_Wishes.Pictures));
  for (const auto& viewer : m_Viewers) m_pVideo->AddVideoSink(viewer.get());
  m_bAttached = true;
}

void CCamera::DetachViewers() {
  if (!std::exchange(m_bAttached, false)) return;
  for (const auto& viewer : m_Viewers) m_pVideo->RemoveVideoSink(viewer.get(), 0);
}

// Asks for the camera's H.264 stream to be recorded, or its first JPEG stream when it has none.
bool CCamera::StartRecording() {
  if (m_bDVRDone || !m_pRecorder) return false;
  const int jpegs = m_pVideo->NResolutions(RTSP_PROFILE_JPEG);
  const int h264s = m_pVideo->NResolutions(RTSP_PROFILE_H264);
  if (jpegs + h264s == 0) return false;
  m_bDVRDone = true;
  CResolutionDescriptor descriptor;
  if (h264s > 0) m_pVideo->LoadResolutionDescriptor(0, &descriptor, RTSP_PROFILE_H264);
  m_pVideo->DVRResolutionIndex(descriptor.EncodeType() == FRAME_KIND_H264 || jpegs == 0 ? jpegs : 0);
  DescribeStreamToRecorder();
  m_pVideo->WantDVR(true);
  return true;
}

// Parameter sets from the session description, for a camera that does not repeat them in its stream.
void CCamera::AnswerRecorder() {
  if (m_pRecorder && m_pRecorder->Status().WantsSets) DescribeStreamToRecorder();
}

void CCamera::DescribeStreamToRecorder() {
  CRTSPProfile profile;
  m_pVideo->DVREncodeProfile(&profile);
  const GXT_RESOLUTION size = m_pVideo->DVREncodeDimensions();
  const int64_t interval = profile.FrameRate() > 0 ? RECORDING_HZ / profile.FrameRate() : 0;
  m_pRecorder->StreamInfo({profile.StartupData(), static_cast<size_t>(profile.NStartupData())},
                          {size.Width, size.Height, interval});
}

CCameraStatus CCamera::Status() {
  CCameraStatus status;
  const CIdentityTexts identity = IdentityOf(m_pVideo);
  status.Type = m_pVideo->ComponentType();
  status.ID = m_iID;
  status.Name = m_pVideo->Name().Str();
  status.Manufacturer = identity.Manufacturer;
  status.Model = identity.Model;
  status.Firmware = identity.Firmware;
  status.Serial = identity.Serial;
  status.ServiceURL = m_pVideo->GetConfigURL().Str();
  status.FPS = m_pVideo->IncomingFPS();
  status.Motion = m_pVideo->Motion();
  status.Events = m_nEvents;
  status.Commands = m_Commands;
  status.SecondsToRunning = m_fSecondsToRunning;
  status.SecondsToPicture = m_fSecondsToPicture;
  DescribeState(&status);
  DescribeStreams(&status);
  DescribeProblems(&status);
  DescribeCalls(&status);
  return status;
}

void CCamera::DescribeState(CCameraStatus* status) const {
  const CLoadProgress progress = m_pBook->Progress(m_iID);
  status->Step = progress.Step();
  status->LastLine = progress.LastLine();
  status->Steps = progress.Lines();
  status->LinesSaid = progress.Said();
  if (InService()) {
    DescribeService(status);
  } else if (Failed()) {
    DescribeFailure(status);
  } else {
    status->State = "loading";
  }
}

void CCamera::DescribeService(CCameraStatus* status) const {
  CCameraConfig config;
  status->State = "running";
  if (!Config(&config) || config.Profiles.empty()) {
    status->State = "running without profiles";
    status->Reason = WhyNoProfiles(m_pVideo->ServiceReport());
  } else if (const std::string encodings = OnlyForeignEncodings(config); !encodings.empty()) {
    status->State = "running without streams";
    status->Reason = "its profiles are " + encodings + "; pictures come as JPEG or H264 only";
  } else if (m_pVideo->Dead()) {
    status->Reason = "no pictures";
  }
}

void CCamera::DescribeFailure(CCameraStatus* status) const {
  const GXT_SERVICE_REPORT report = m_pVideo->ServiceReport();
  const bool told = report.State == GXT_REPORT::STATE::Failed;
  status->State = "failed";
  status->Reason = told ? report.Step.Str() + ": " + report.Reason.Str() : m_pBook->Progress(m_iID).Reason();
  status->Reason += ", tried at " + status->ServiceURL;
  if (report.LoginRefused) {
    status->Reason += ": check user name and password";
  } else if (const std::string finding = m_Reachability.Finding(); !finding.empty()) {
    status->Reason += ": " + finding;
  }
  if (told) status->Reason += RetryText(report.RetryMs);
}

void CCamera::DescribeStreams(CCameraStatus* status) const {
  status->JPEGFrames = m_nPastFrames;
  for (const auto& viewer : m_Viewers) {
    status->Streams.push_back(viewer->Status());
    status->JPEGFrames += viewer->Frames();
    for (const std::string& path : {viewer->Path(), viewer->KeptPath()})
      if (!path.empty() && viewer->Frames() > 0) status->Pictures.push_back(path);
  }
  if (m_pRecorder) DescribeRecording(status);
  for (const GXT_STREAM_REPORT& report : m_pVideo->StreamReports()) {
    const auto number = static_cast<size_t>(report.Stream);
    CStreamStatus* const stream = report.Stream == GXT_STREAM_REPORT::RECORDED ? RecordedStream(status)
                                  : number < m_Viewers.size()                  ? &status->Streams[number]
                                                                               : nullptr;
    if (stream != nullptr) Take(report, stream);
  }
}

void CCamera::DescribeRecording(CCameraStatus* status) const {
  const CRecorderStatus recorder = m_pRecorder->Status();
  status->H264Frames = recorder.Delivered;
  status->Recordings = recorder.Paths;
  status->Dropped = recorder.Dropped;
  // Of a camera without JPEG streams only the recorded pictures tell.
  if (status->FPS <= 0 && recorder.Motion >= 0) status->Motion = recorder.Motion;
  CGXMSG stats;
  m_pVideo->GetVideoStats(&stats);
  stats.GetInt();  // rate and motion, which are known already
  stats.GetInt();
  for (int n = std::min(stats.GetInt(), MOST_ENTRIES); n > 0; --n) {
    const bool dvr = stats.GetString() == H264_STREAM_NAME;
    const int rate = stats.GetInt();
    const GXT_RESOLUTION size = m_pVideo->DVREncodeDimensions();
    if (dvr)
      status->Streams.push_back(
          {"H264", size.Width, size.Height, rate / 100.0, recorder.PicturesPerSecond, "", "", -1});
  }
}

void CCamera::DescribeProblems(CCameraStatus* status) const {
  const auto add = [status](const std::string& text) {
    if (!text.empty()) status->Problem += (status->Problem.empty() ? "" : "; ") + text;
  };
  if (m_pRecorder) add(m_pRecorder->Status().Error);
  if (m_Wishes.Pictures != nullptr) add(m_Wishes.Pictures->Error());
  if (const GXT_REPORT events = m_pVideo->EventReport(); events.State == GXT_REPORT::STATE::Failed)
    add("no motion or other events: " + events.Reason.Str() + RetryText(events.RetryMs));
  for (const GXT_STREAM_REPORT& report : m_pVideo->StreamReports())
    if (report.TooLarge > 0)
      add(std::to_string(report.TooLarge) +
          " pictures of the H.264 stream were too large and are in no recording: give it a lower bit rate or a "
          "smaller size, or another key frame interval (set-stream)");
}

void CCamera::DescribeCalls(CCameraStatus* status) const {
  CIntercomClient* const client = m_pVideo->GetIcomClient(ICOM_CLIENT_SELF);
  if (m_Wishes.Calls == nullptr || client == nullptr) return;
  const CCallCounts calls = m_Wishes.Calls->Counts(client);
  if (calls.Placed > 0 || client->IcomHardwareType() == ICOM_HARDWARE_DOOR_STATION) status->Calls = calls;
}
