// The connection thread: the pass over the loading steps, and what keeps a loaded camera in service.
#include "camera/ONVIFCam.h"
#include "camera/ONVIF_proc.h"
#include "camera/outbound_call.h"
#include "host/intercom/intercom.h"
#include "host/net/socket.h"
#include "host/system/event_server.h"
#include "host/system/system.h"
#include "onvif/onvif.h"

#include <memory>

namespace {

constexpr unsigned TIME_SYNC_PERIOD_MS = 600000;
constexpr unsigned RETRY_MS = 5000;
constexpr unsigned LOCKED_CONFIG_MS = 1000;
constexpr unsigned WAKE_MS = 1000;
constexpr unsigned IDLE_FRAMES_MS = 99;  // that much of a main-thread pass may go into frames
constexpr int IDLE_AUDIO_BYTES = 128000;
constexpr int FRAME_AUDIO_BYTES = 1000;
constexpr int COMMAND_CATEGORY_CALL = 29;

constexpr unsigned STEPS_OF_ALL = STATE_TIME_SYNC | STATE_MEDIA_URLS | STATE_ENCODERS | STATE_CAPABILITIES |
                                  STATE_PROFILES | STATE_SNAPSHOTS | STATE_STREAM_URIS | STATE_PTZ |
                                  STATE_EVENTS;

}  // namespace

bool CONVIFCam::Step(unsigned bit, const char* text, bool (CONVIFCam::*load)()) {
  if (m_RunState.Has(bit)) return true;
  const CRunState::Epoch since = m_RunState.Now();
  Trace(text);
  if (!(this->*load)()) return false;
  m_RunState.Set(bit, since);
  Trace("Success");
  return true;
}

bool CONVIFCam::CheckRunState() {
  const bool identified =
      IsStatic() ? CheckDeviceInfo()
                 : Step(STATE_SERVICE_URL, "Looking for Service URL...", &CONVIFCam::FindONVIF_ServiceURL);
  if (!identified) return false;
  CheckTime();
  CheckMediaURLs();
  if (!Step(STATE_ENCODERS, "Loading Encoder Configs...", &CONVIFCam::LoadONVIF_EncoderConfig)) {
    m_RunState.Clear(STATE_MEDIA_URLS);  // perhaps the address was wrong: ask for it again
    return false;
  }
  if (!Step(STATE_CAPABILITIES, "Loading Capabilities...", &CONVIFCam::LoadONVIF_Capabilities)) return false;
  if (!Step(STATE_PROFILES, "Loading Profile Configs...", &CONVIFCam::LoadONVIF_ProfileConfig)) return false;
  CheckSnapshots();
  if (!Step(STATE_STREAM_URIS, "Loading Media Config...", &CONVIFCam::LoadStreams)) return false;
  if (!Step(STATE_PTZ, "Loading PTZ Config...", &CONVIFCam::LoadONVIF_PTZConfig)) return false;
  CheckEvents();
  return true;
}

bool CONVIFCam::CheckDeviceInfo() {
  if (m_RunState.Has(STATE_DEVICE_INFO)) return true;
  const CRunState::Epoch since = m_RunState.Now();
  Trace("Loading Device Info...");
  const std::unique_ptr<CONVIFDevice> device(CONVIF::QueryDeviceAtURL(ServiceURL(), UserName(), Password()));
  if (device == nullptr) return false;
  SetIdentity(*device);
  UpdateTraceName();
  m_RunState.Set(STATE_DEVICE_INFO, since);
  Trace("Success");
  CSystem::Instance()->NotifyConfigChanged();
  return true;
}

void CONVIFCam::CheckTime() {
  if (m_Clock.Age() > TIME_SYNC_PERIOD_MS) m_RunState.Clear(STATE_TIME_SYNC);
  if (m_RunState.Has(STATE_TIME_SYNC)) return;
  const CRunState::Epoch since = m_RunState.Now();
  Trace("Performing TimeSync()...");
  if (LoadONVIF_TimeSync()) {
    Trace("Success");
  } else {
    CGXTime now;
    now.GetPresentTime(1);
    m_Clock.Set(now);
    Trace("Failed");
  }
  m_RunState.Set(STATE_TIME_SYNC, since);
}

// Never fails: a camera that names no media service is asked at its device service.
void CONVIFCam::CheckMediaURLs() {
  if (m_RunState.Has(STATE_MEDIA_URLS)) return;
  const CRunState::Epoch since = m_RunState.Now();
  Trace("Loading Media URLs...");
  LoadONVIF_MediaURL1();
  LoadONVIF_MediaURL2();
  m_RunState.Set(STATE_MEDIA_URLS, since);
  Trace("Success");
}

void CONVIFCam::CheckSnapshots() {
  if (m_RunState.Has(STATE_SNAPSHOTS)) return;
  const CRunState::Epoch since = m_RunState.Now();
  Trace("Loading Snapshot Config...");
  Trace(LoadONVIF_SnapshotConfig() ? "Success" : "WARNING: No Snapshot Config");
  m_RunState.Set(STATE_SNAPSHOTS, since);
}

bool CONVIFCam::LoadStreams() {
  if (!LoadONVIF_MediaConfig()) return false;
  if (IsDoorStation()) LoadONVIF_RTSPConfig();  // only speeds up the first call; a stream start asks again
  return true;
}

// A camera without events is in service all the same.
void CONVIFCam::CheckEvents() {
  if (m_RunState.Has(STATE_EVENTS)) {
    m_Events.Watch();
    return;
  }
  const CRunState::Epoch since = m_RunState.Now();
  Trace("Starting Event Service...");
  const bool subscribed = StartONVIF_EventConfig();
  if (!m_RunState.Set(STATE_EVENTS, since) || !subscribed) return;
  m_Events.Start(since);
  Trace("Success");
}

bool CONVIFCam::Loaded() const {
  return m_RunState.Has(STEPS_OF_ALL | (IsStatic() ? STATE_DEVICE_INFO : STATE_SERVICE_URL));
}

void CONVIFCam::SetErrorState() {
  m_RunState.Reset();
  m_Wake.SetEvent();
}

int CONVIFCam::Run() {
  bool registered = false;
  while (!StopFlag() && !CGXThread::CurrentCancelled()) {
    const CRunState::Epoch since = m_RunState.Now();
    if (!CheckRunState()) {
      Trace("FAILED");
      Sleep(RETRY_MS);
      if (registered) registered = !LeaveIntercom();
      continue;
    }
    if (!registered) registered = JoinIntercom();
    if (m_Model.HasEmptyUserSettings()) LoadDefaultUserSettings();
    RequestDVR(since);
    if (!CheckLockConfig()) {
      Sleep(LOCKED_CONFIG_MS);
      continue;
    }
    m_Wake.WaitSignal(WAKE_MS);
    if (StopFlag()) return 0;
    // A stream that failed has just reset the state: reload first, or the streams would start in the middle of
    // the load, fail again, and so on without a pause.
    if (Loaded()) m_Streams.Start();
  }
  Trace("Thread Ended");
  return 0;
}

// Both: true when done, false when the thread was cancelled before it had the lock.
bool CONVIFCam::JoinIntercom() {
  const CMainThreadLock lock;
  if (!lock) return false;
  CIntercomServer::Instance()->RegisterClient(this);
  if (IsDoorStation()) {
    CEventServer::Instance()->CheckCommand(ID(), COMMAND_PLACE_CALL, COMMAND_CATEGORY_CALL, 1);
    CEventServer::Instance()->CheckCommand(ID(), COMMAND_CANCEL_CALL, COMMAND_CATEGORY_CALL, 1);
  }
  return true;
}

bool CONVIFCam::LeaveIntercom() {
  const CMainThreadLock lock;
  if (!lock) return false;
  CIntercomServer::Instance()->RemoveClient(this);
  m_pOutboundCall.reset();  // nobody rings for it any more
  return true;
}

// The file thread starts the recording, once for each load.
void CONVIFCam::RequestDVR(CRunState::Epoch since) {
  if (!m_Streams.EndUnwantedDVR()) m_RunState.Set(STATE_DVR_REQUESTED, since);
}

void CONVIFCam::FileThreadOnIdle() {
  if (m_RunState.WantsDVRStart()) {
    const CMainThreadLock lock;
    // The user may have changed his mind since the connection thread asked.
    if (lock && m_RunState.TakeDVRRequest() && (DVRFlags() & DVR_FLAG_WANTED) != 0) StartDVR();
  }
  CVideoSystem::FileThreadOnIdle();
}

// ---- Queue ----

void CONVIFCam::PushProc(std::unique_ptr<CONVIF_Proc> proc) {
  m_Queue.Push(std::move(proc));
  StartONVIFThread();
}

void CONVIFCam::StartONVIFThread() {
  if (m_Queue.Claim()) m_Queue.Worker().Start(ONVIFThreadProc, this, WORKER_STACK_BYTES, "ONVIF Proc Thread");
}

unsigned CONVIFCam::ONVIFThreadProc(void* camera) {
  static_cast<CONVIFCam*>(camera)->RunThreadProc();
  return 0;
}

void CONVIFCam::RunThreadProc() {
  while (std::unique_ptr<CONVIF_Proc> proc = PullProc()) {
    proc->DoProc(this);
    PushFinishedProc(std::move(proc));
  }
}

void CONVIFCam::PushFinishedProc(std::unique_ptr<CONVIF_Proc> proc) {
  // Of no effect from the worker itself; a proc that finishes behind others makes sure that it runs.
  if (m_Queue.PushFinished(std::move(proc))) StartONVIFThread();
}

// ---- Main thread ----

void CONVIFCam::OnComponentIdle() {
  while (const std::unique_ptr<CONVIF_Proc> proc = PullFinishedProc()) proc->PostProc(this);
  EndLongRinging();
  CVideoSystem::OnComponentIdle();
  SendAudio(IDLE_AUDIO_BYTES);
  if (!ProcessReadyFrames()) ProcessDeadCamera();
}

bool CONVIFCam::ProcessReadyFrames() {
  const CGXTimer timer;
  bool any = false;
  while (CJPEGBuffer* const frame = GetReadyFrame()) {
    ProcessFrame(frame);
    SendAudio(FRAME_AUDIO_BYTES);
    SetFreeFrame(frame);
    any = true;
    if (timer.GXTickCount() > IDLE_FRAMES_MS) break;
  }
  return any;
}
