// The connection thread: what brings a camera into service, again and again, and keeps it there.
#include "camera/ONVIFCam.h"
#include "camera/ONVIF_proc.h"
#include "camera/outbound_call.h"
#include "host/intercom/intercom.h"
#include "host/net/socket.h"
#include "host/system/event_server.h"
#include "host/system/system.h"

#include <memory>

namespace {

constexpr unsigned LOCKED_CONFIG_MS = 1000;
constexpr unsigned WAKE_MS = 1000;
constexpr unsigned IDLE_FRAMES_MS = 99;  // that much of a main-thread pass may go into frames
constexpr int IDLE_AUDIO_BYTES = 128000;
constexpr int FRAME_AUDIO_BYTES = 1000;
constexpr int COMMAND_CATEGORY_CALL = 29;

}  // namespace

void CONVIFCam::SetErrorState() {
  m_Loading.StreamFailed();
  m_Wake.SetEvent();
}

int CONVIFCam::Run() {
  bool registered = false;
  while (!StopFlag() && !CGXThread::CurrentCancelled()) {
    // Whatever fails is tried again as late: a camera whose streams refuse is not asked without pause, and has
    // a place left for the subscriptions of others.
    if (m_Loading.TakeFailure()) {
      Sleep(CLoading::RETRY_MS);
      m_Loading.TakeFailure();  // of another stream meanwhile
    }
    const CRunState::Epoch since = m_RunState.Now();
    if (!CheckRunState()) {
      Trace("FAILED");
      Sleep(CLoading::RETRY_MS);
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
    if (m_Loading.Loaded()) m_Streams.Start();
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
