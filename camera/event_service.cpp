#include "camera/event_service.h"

#include "camera/ONVIFCam.h"
#include "camera/camera_clock.h"
#include "camera/notification_listener.h"
#include "host/net/netinterface.h"
#include "onvif/login_header.h"
#include "onvif/namespaces.h"
#include "onvif/onvif.h"
#include "onvif/soap_request.h"

namespace {

constexpr const char* SUBSCRIPTION_TIME = "PT60S";
constexpr unsigned RENEWAL_MS = 50000;  // leaves a camera that is slow to answer ten seconds
constexpr unsigned LISTEN_MS = 500;     // within this the listener notices a reset
constexpr int PORT_RETRY_MS = 5000;
constexpr unsigned STACK_BYTES = 256000;
constexpr const char* MUST_UNDERSTAND = "s:mustUnderstand=\"1\"";

// The header names the notification service's own addressing, so this is no envelope as the others are.
void WriteHeader(CONVIFMsg* header, CONVIFCam* camera, CCameraClock* clock) {
  CONVIFMsg* const action = header->AddMSG("a:Action");
  action->AddAttrib(MUST_UNDERSTAND);
  action->AddValue(WSN_SUBSCRIBE_ACTION);
  header->AddValue("a:MessageID", CONVIF::GenerateMSGID());
  header->AddMSG("a:ReplyTo")->AddValue("a:Address", ADDRESSING_ANONYMOUS);
  CCameraClock::CReading reading = clock->Reading();
  CONVIFLoginHeader::AppendCredentials(header, camera->UserName(), camera->Password(), reading.Time,
                                       &reading.Since);
  CONVIFMsg* const to = header->AddMSG("a:To");
  to->AddAttrib(MUST_UNDERSTAND);
  to->AddValue(camera->ServiceURL());
}

}  // namespace

CEventService::CEventService(CONVIFCam* camera, CRunState* state, CCameraClock* clock, unsigned short port)
    : m_pCamera(camera), m_pState(state), m_pClock(clock), m_wPort(port) {}

// Nothing of the answer is kept: a subscription is renewed by a new one, which every camera understands.
bool CEventService::Subscribe() {
  CONVIFMsg envelope("s:Envelope");
  envelope.AddAttrib(CONVIF::FormatXMLNS_S(NS_SOAP_ENVELOPE));
  envelope.AddAttrib(CONVIF::FormatXMLNS_A(NS_ADDRESSING));
  WriteHeader(envelope.AddMSG("s:Header"), m_pCamera, m_pClock);
  CONVIFMsg* const subscribe = envelope.AddBody()->AddMSG_XMLNS("Subscribe", NS_WS_NOTIFICATION);
  CGXString consumer;
  consumer.Format("http://%s:%d/subscribe", GXFormatAddress(GetPrimaryIP()).Str().c_str(), m_wPort);
  subscribe->AddMSG("ConsumerReference")->AddValue("a:Address", consumer);
  subscribe->AddValue("InitialTerminationTime", SUBSCRIPTION_TIME);
  const std::unique_ptr<CONVIFMsg> reply(
      CONVIF::DoQuery_HTTP(m_pCamera->ServiceURL(), "", "", &envelope, CONVIFCam::QUERY_TIMEOUT_MS));
  if (reply != nullptr && reply->FindSubMSG("SubscribeResponse") != nullptr) return true;
  const CGXString fault = CSOAPFault::Of(reply.get()).Text;
  Failed(reply == nullptr  ? "the camera did not answer when it was asked to send events"
         : fault.IsEmpty() ? CGXString("the camera did not agree to send events")
                           : "the camera refuses to send events (" + fault + ")",
         GXT_REPORT::NOT_PLANNED);
  return false;
}

// ---- Listener ----

// Only the connection thread starts the listener, so an earlier one that has not noticed a reset yet is ended
// first: a start is never lost.
void CEventService::Start(CRunState::Epoch since) {
  m_Thread.Cancel();
  m_Thread.Reset();
  m_Epoch = since;
  m_nSteps = m_pClock->Steps();
  m_SinceSubscribed.Restart();
  {
    const CGXLock lock(m_Lock);
    m_Report = {GXT_REPORT::STATE::Starting, {}, GXT_REPORT::NOT_PLANNED};
  }
  if (m_Thread.Start(ThreadProc, this, STACK_BYTES, "ONVIF Event Proc Thread") == 0)
    Failed("the controller had no thread for them", PORT_RETRY_MS);
}

void CEventService::Watch() {
  {
    const CGXLock lock(m_Lock);
    if (m_Report.RetryMs == GXT_REPORT::NOT_PLANNED || m_Retry.Left() > 0) return;
  }
  if (m_Thread.IsRunning()) return;  // it tries by itself
  m_Thread.Start(ThreadProc, this, STACK_BYTES, "ONVIF Event Proc Thread");
}

unsigned CEventService::ThreadProc(void* service) {
  static_cast<CEventService*>(service)->Run();
  return 0;
}

void CEventService::Run() {
  CNotificationListener listener;
  if (!listener.Open(m_wPort)) {
    const CGXString port(std::to_string(m_wPort));
    if (m_pCamera->Trace()) m_pCamera->Trace("WARNING: Can't listen on event port " + port);
    if (m_wPort == 0)
      Failed("64 cameras have events, and there are no more ports for others", GXT_REPORT::NOT_PLANNED);
    else
      Failed("TCP port " + port + " of the controller, to which the camera sends them, is taken",
             PORT_RETRY_MS);
    return;
  }
  Running();
  while (m_pState->HasSince(STATE_EVENTS, m_Epoch) && !CGXThread::CurrentCancelled()) {
    const std::span<char> body = listener.Wait(LISTEN_MS);
    if (!body.empty()) m_pCamera->ProcessEvent(body.data(), static_cast<int>(body.size()));
    if (RenewalDue()) Renew();
  }
}

// A step of the clock counts as due: it may have moved the next renewal behind the subscription's end.
bool CEventService::RenewalDue() {
  return m_pClock->Steps() != m_nSteps || m_SinceSubscribed.GXTickCount() > RENEWAL_MS;
}

// With the camera's time right: it would refuse a login with a wrong one, and no events would come until the
// next renewal. When the clock is stepped meanwhile, the next look finds the renewal due again.
void CEventService::Renew() {
  m_nSteps = m_pClock->Steps();
  if (m_pClock->Wrong()) m_pCamera->SyncTime();
  m_SinceSubscribed.Restart();
  if (Subscribe()) {
    Running();
    return;
  }
  // A camera that does not agree now is asked again next time.
  const CGXLock lock(m_Lock);
  m_Report.RetryMs = RENEWAL_MS;
  m_Retry = CGXDeadline(RENEWAL_MS);
}

// ---- How it stands ----

void CEventService::Running() {
  const CGXLock lock(m_Lock);
  m_Report = {GXT_REPORT::STATE::Running, {}, GXT_REPORT::NOT_PLANNED};
}

void CEventService::Failed(const CGXString& reason, int retryMs) {
  const CGXLock lock(m_Lock);
  m_Report = {GXT_REPORT::STATE::Failed, reason, retryMs};
  m_Retry = CGXDeadline(retryMs < 0 ? 0U : static_cast<unsigned>(retryMs));
}

GXT_REPORT CEventService::Report() const {
  if (!m_pState->Has(STATE_EVENTS)) return {};
  const CGXLock lock(m_Lock);
  GXT_REPORT report = m_Report;
  if (report.RetryMs != GXT_REPORT::NOT_PLANNED) report.RetryMs = m_Retry.Left();
  return report;
}
