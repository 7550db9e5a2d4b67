// Subscribing to the camera's events, and receiving them.
#include "camera/ONVIFCam.h"
#include "camera/notification_listener.h"
#include "host/base/gxassert.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"
#include "host/system/event_server.h"
#include "onvif/login_header.h"
#include "onvif/namespaces.h"
#include "onvif/onvif.h"

#include <algorithm>

namespace {

constexpr unsigned short FIRST_EVENT_PORT = 8795;
constexpr unsigned short EVENT_PORT_STEP = 2;

constexpr const char* SUBSCRIPTION_TIME = "PT60S";
constexpr unsigned RENEWAL_MS = 50000;  // leaves a camera that is slow to answer ten seconds
constexpr unsigned LISTEN_MS = 500;     // within this the listener notices a reset
constexpr const char* MUST_UNDERSTAND = "s:mustUnderstand=\"1\"";

}  // namespace

CGXCritical CONVIFCam::g_EventPortLock;
unsigned short CONVIFCam::g_wEventPorts[MAX_EVENT_PORTS];
int CONVIFCam::g_iNEventPorts = 0;

unsigned short CONVIFCam::GetEventPort() {
  const CGXLock lock(g_EventPortLock);
  if (g_iNEventPorts >= MAX_EVENT_PORTS) {
    AssertWrap("ONVIFCam", 3633);
    return 0;
  }
  unsigned short port = FIRST_EVENT_PORT;
  unsigned short* const end = g_wEventPorts + g_iNEventPorts;
  while (std::find(g_wEventPorts, end, port) != end) port = static_cast<unsigned short>(port + EVENT_PORT_STEP);
  g_wEventPorts[g_iNEventPorts++] = port;
  return port;
}

void CONVIFCam::FreeEventPort(unsigned short port) {
  const CGXLock lock(g_EventPortLock);
  unsigned short* const end = g_wEventPorts + g_iNEventPorts;
  unsigned short* const found = std::find(g_wEventPorts, end, port);
  if (found == end) return;
  std::copy(found + 1, end, found);
  --g_iNEventPorts;
}

void CONVIFCam::WriteSubscribeHeader(CONVIFMsg* header) {
  CONVIFMsg* const action = header->AddMSG("a:Action");
  action->AddAttrib(MUST_UNDERSTAND);
  action->AddValue(WSN_SUBSCRIBE_ACTION);
  header->AddValue("a:MessageID", CONVIF::GenerateMSGID());
  header->AddMSG("a:ReplyTo")->AddValue("a:Address", ADDRESSING_ANONYMOUS);
  CCameraClock clock = CameraClock();
  CONVIFLoginHeader::AppendCredentials(header, UserName(), Password(), clock.Time, &clock.Since);
  CONVIFMsg* const to = header->AddMSG("a:To");
  to->AddAttrib(MUST_UNDERSTAND);
  to->AddValue(ServiceURL());
}

// Nothing of the answer is kept: a subscription is renewed by a new one, which every camera understands.
bool CONVIFCam::StartONVIF_EventConfig() {
  CONVIFMsg envelope("s:Envelope");
  envelope.AddAttrib(CONVIF::FormatXMLNS_S(NS_SOAP_ENVELOPE));
  envelope.AddAttrib(CONVIF::FormatXMLNS_A(NS_ADDRESSING));
  WriteSubscribeHeader(envelope.AddMSG("s:Header"));
  CONVIFMsg* const subscribe = envelope.AddBody()->AddMSG_XMLNS("Subscribe", NS_WS_NOTIFICATION);
  CGXString consumer;
  consumer.Format("http://%s:%d/subscribe", GXFormatAddress(GetPrimaryIP()).Str().c_str(), m_wEventPort);
  subscribe->AddMSG("ConsumerReference")->AddValue("a:Address", consumer);
  subscribe->AddValue("InitialTerminationTime", SUBSCRIPTION_TIME);
  const std::unique_ptr<CONVIFMsg> reply(
      CONVIF::DoQuery_HTTP(ServiceURL(), "", "", &envelope, QUERY_TIMEOUT_MS));
  return reply != nullptr && reply->FindSubMSG("SubscribeResponse") != nullptr;
}

// ---- Listener ----

// Only the connection thread starts the listener, so an earlier one that has not noticed a reset yet is ended
// first: a start is never lost.
void CONVIFCam::StartEventThread(CRunState::Epoch since) {
  m_EventThread.Cancel();
  m_EventThread.Reset();
  m_EventEpoch = since;
  m_EventThread.Start(ONVIFEventThreadProc, this, WORKER_STACK_BYTES, "ONVIF Event Proc Thread");
}

unsigned CONVIFCam::ONVIFEventThreadProc(void* camera) {
  static_cast<CONVIFCam*>(camera)->RunEventThreadProc();
  return 0;
}

void CONVIFCam::RunEventThreadProc() {
  CNotificationListener listener;
  if (!listener.Open(m_wEventPort)) {
    if (Trace()) Trace("WARNING: Can't listen on event port " + CGXString(std::to_string(m_wEventPort)));
    return;
  }
  CGXTimer renewal;
  while (m_RunState.HasSince(STATE_EVENTS, m_EventEpoch) && !CGXThread::CurrentCancelled()) {
    const std::span<char> body = listener.Wait(LISTEN_MS);
    if (!body.empty()) ProcessEvent(body.data(), static_cast<int>(body.size()));
    if (renewal.GXTickCount() <= RENEWAL_MS) continue;
    StartONVIF_EventConfig();  // a camera that does not answer now is asked again next time
    renewal.Restart();
  }
}

// ---- Notifications ----

void CONVIFCam::ProcessEvent(char* body, int length) {
  const std::unique_ptr<CONVIFMsg> tree(CONVIFMsg::CreateMSG(body, length));
  CONVIFMsg* const soap = tree != nullptr ? tree->FindSubMSG("Body") : nullptr;
  // Only the first of several: cameras that bundle them repeat the states of their other rules behind it, which
  // would take back the motion just reported.
  CONVIFMsg* const message = soap != nullptr ? soap->FindSubMSG("NotificationMessage") : nullptr;
  if (message == nullptr) return;
  CGXString sourceName, source, keyName, key, dataName, data;
  ExtractSimple(message, "Source", &sourceName, &source);
  ExtractSimple(message, "Key", &keyName, &key);
  ExtractSimple(message, "Data", &dataName, &data);
  if (Trace()) {
    CGXString line;
    line.Format("Src %s:%s Key %s:%s Data %s:%s", sourceName.Str().c_str(), source.Str().c_str(),
                keyName.Str().c_str(), key.Str().c_str(), dataName.Str().c_str(), data.Str().c_str());
    Trace(line);
  }
  if (dataName == "IsMotion") ReportMotion(data == "true");
}

void CONVIFCam::ExtractSimple(CONVIFMsg* message, const char* part, CGXString* name, CGXString* value) {
  CONVIFMsg* const element = message->FindSubMSG(part);
  const CONVIFMsg* const item = element != nullptr ? element->FindSubMSG("SimpleItem") : nullptr;
  if (item == nullptr) return;
  *name = item->Attribute("Name");
  *value = item->Attribute("Value");
}

void CONVIFCam::ReportMotion(bool motion) {
  m_iMotionLevel = motion ? MOTION_LEVEL_FULL : 0;  // first: who takes the event may ask for it
  if (motion) CEventServer::Instance()->RegisterEvent(ID(), EVENT_MOTION, 0);
}
