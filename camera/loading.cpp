// The pass: which step comes when, and what becomes of one that fails.
#include "camera/loading.h"

#include "camera/ONVIFCam.h"
#include "host/system/system.h"
#include "onvif/soap_request.h"

namespace {

constexpr unsigned TIME_SYNC_PERIOD_MS = 600000;
constexpr int MOST_TRIES = 3;  // of one step in one pass, when the controller's clock is stepped each time

constexpr unsigned STEPS_OF_ALL = STATE_TIME_SYNC | STATE_MEDIA_URLS | STATE_ENCODERS | STATE_CAPABILITIES |
                                  STATE_PROFILES | STATE_SNAPSHOTS | STATE_STREAM_URIS | STATE_PTZ |
                                  STATE_EVENTS;

}  // namespace

struct CLoading::CStep {
  unsigned Bit;
  const char* Name;  // as a user says it
  const char* Text;  // traced when it begins
  bool (CLoading::*Load)();
  const char* Without = nullptr;  // of a step that may fail: what is traced then; empty: nothing
};

bool CLoading::Pass() {
  if (!Identify()) return false;
  CheckTime();
  if (!Passes({STATE_MEDIA_URLS, "service addresses", "Loading Media URLs...", &CLoading::LoadMediaURLs}))
    return false;
  if (!Passes({STATE_ENCODERS, "encoder settings", "Loading Encoder Configs...",
               &CLoading::LoadONVIF_EncoderConfig})) {
    m_Rooms.State->Clear(STATE_MEDIA_URLS);  // perhaps the address was wrong: ask for it again
    return false;
  }
  return Passes({STATE_CAPABILITIES, "capabilities", "Loading Capabilities...",
                 &CLoading::LoadONVIF_Capabilities}) &&
         Passes(
             {STATE_PROFILES, "profiles", "Loading Profile Configs...", &CLoading::LoadONVIF_ProfileConfig}) &&
         Passes({STATE_SNAPSHOTS, "snapshot addresses", "Loading Snapshot Config...",
                 &CLoading::LoadONVIF_SnapshotConfig, "WARNING: No Snapshot Config"}) &&
         Passes({STATE_STREAM_URIS, "stream addresses", "Loading Media Config...", &CLoading::LoadStreams}) &&
         Passes({STATE_PTZ, "movement", "Loading PTZ Config...", &CLoading::LoadONVIF_PTZConfig}) &&
         CheckEvents();
}

// Whom to ask, which needs neither login nor time.
bool CLoading::Identify() {
  const CStep step = IsStatic() ? CStep{STATE_DEVICE_INFO, "device information", "Loading Device Info...",
                                        &CLoading::LoadDeviceInfo}
                                : CStep{STATE_SERVICE_URL, "search on the network",
                                        "Looking for Service URL...", &CLoading::FindONVIF_ServiceURL};
  if (m_Rooms.State->Has(step.Bit)) return true;
  ForgetRefusals();
  const Result result = DoOnce(step, std::nullopt);
  if (result == Result::DONE && IsStatic()) CSystem::Instance()->NotifyConfigChanged();
  return result != Result::FAILED;
}

CLoading::Result CLoading::Do(const CStep& step) {
  if (m_Rooms.State->Has(step.Bit)) return Result::SKIPPED;
  for (int i = 0; i < MOST_TRIES; ++i) {
    if (m_Rooms.Clock->Wrong()) CheckTime();
    const unsigned steps = m_Rooms.Clock->Steps();
    const Result result = DoOnce(step, steps);
    if (result != Result::AGAIN) return result;
  }
  Failed("the controller's clock is being set again and again");
  return Result::FAILED;
}

// A thread that is told to end sets no bits: nothing that it asks is answered any more.
CLoading::Result CLoading::DoOnce(const CStep& step, std::optional<unsigned> clockSteps) {
  m_Since = m_Rooms.State->Now();
  Begin(step.Name);
  m_Rooms.Camera->Trace(step.Text);
  const bool done = (this->*step.Load)();
  if (CGXThread::CurrentCancelled()) return Result::FAILED;
  if (clockSteps.has_value() && m_Rooms.Clock->Steps() != *clockSteps) return Result::AGAIN;
  if (!done && step.Without == nullptr) {
    Failed(m_Reason);
    return Result::FAILED;
  }
  m_Rooms.State->Set(step.Bit, m_Since);
  const char* const text = done ? "Success" : step.Without;
  if (*text != '\0') m_Rooms.Camera->Trace(text);
  return done ? Result::DONE : Result::DONE_WITHOUT;
}

// The camera's clock runs on by the controller's, which drifts from it and may be set.
void CLoading::CheckTime() {
  CRunState* const state = m_Rooms.State;
  if (m_Rooms.Clock->Age() > TIME_SYNC_PERIOD_MS || m_Rooms.Clock->Wrong()) state->Clear(STATE_TIME_SYNC);
  if (state->Has(STATE_TIME_SYNC)) return;
  const CRunState::Epoch since = state->Now();
  Begin("time");
  m_Rooms.Camera->Trace("Performing TimeSync()...");
  const bool synchronised = SyncTime();
  if (!synchronised) {
    if (CGXThread::CurrentCancelled()) return;
    CGXTime now;
    now.GetPresentTime(1);
    m_Rooms.Clock->Set(now);
  }
  m_Rooms.Camera->Trace(synchronised ? "Success" : "Failed");
  state->Set(STATE_TIME_SYNC, since);
}

// A camera without events is in service all the same.
bool CLoading::CheckEvents() {
  switch (Do({STATE_EVENTS, "events", "Starting Event Service...", &CLoading::StartONVIF_EventConfig, ""})) {
    case Result::SKIPPED:
      m_Rooms.Events->Watch();
      return true;
    case Result::DONE:
      m_Rooms.Events->Start(m_Since);
      return true;
    case Result::DONE_WITHOUT:
      return true;
    default:
      return false;
  }
}

bool CLoading::IsStatic() const {
  return m_Rooms.Camera->ComponentType() == CONVIFCam::TYPE_STATIC;
}

bool CLoading::Loaded() const {
  return m_Rooms.State->Has(STEPS_OF_ALL | (IsStatic() ? STATE_DEVICE_INFO : STATE_SERVICE_URL));
}

// ---- How it stands ----

void CLoading::StreamFailed() {
  {
    const CGXLock lock(m_Lock);
    m_Report.Step = "streams";
    Failed("a stream failed, and the camera is loaded again");
  }
  m_bFailed = true;  // before the reset: the connection thread must not load in between without the pause
  m_Rooms.State->Reset();
}

void CLoading::Begin(const char* step) {
  m_Reason = CGXString();
  const CGXLock lock(m_Lock);
  m_Report.State = GXT_REPORT::STATE::Starting;
  m_Report.Step = step;
  m_Report.Reason = CGXString();
}

void CLoading::Failed(const CGXString& reason) {
  const CGXLock lock(m_Lock);
  m_Report.State = GXT_REPORT::STATE::Failed;
  m_Report.Reason = reason;
  m_Retry = CGXDeadline(RETRY_MS);
}

// A refused login is the cause of other refusals, so it stays; of others the last one counts most.
void CLoading::NoteRefusal(const char* operation, const CONVIFMsg& answer) {
  const CSOAPFault fault = CSOAPFault::Of(&answer);
  const CGXLock lock(m_Lock);
  if (fault.Text.IsEmpty() || m_Report.LoginRefused) return;
  m_Report.Refused = CGXString(operation) + ": " + fault.Text;
  m_Report.LoginRefused = fault.OfLogin;
}

void CLoading::ForgetRefusals() {
  const CGXLock lock(m_Lock);
  m_Report.Refused = CGXString();
  m_Report.LoginRefused = false;
}

GXT_SERVICE_REPORT CLoading::Report() const {
  const bool loaded = Loaded();
  const CGXLock lock(m_Lock);
  GXT_SERVICE_REPORT report = m_Report;
  if (loaded) {
    report.State = GXT_REPORT::STATE::Running;
    report.Step = report.Reason = CGXString();
  } else if (report.State == GXT_REPORT::STATE::Failed) {
    report.RetryMs = m_Retry.Left();
  }
  return report;
}
