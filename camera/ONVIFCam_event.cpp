// Subscribing to the camera's events, and the ports on which cameras' notifications arrive.
#include "camera/ONVIFCam.h"
#include "host/gxassert.h"
#include "host/socket.h"
#include "onvif/login_header.h"
#include "onvif/namespaces.h"
#include "onvif/onvif.h"

#include <algorithm>

namespace {

constexpr unsigned short FIRST_EVENT_PORT = 8795;
constexpr unsigned short EVENT_PORT_STEP = 2;

// OASIS Web Services Notification 1.3, W3C Web Services Addressing 1.0.
constexpr const char* NS_NOTIFICATION = "http://docs.oasis-open.org/wsn/b-2";
constexpr const char* ACTION_SUBSCRIBE =
    "http://docs.oasis-open.org/wsn/bw-2/NotificationProducer/SubscribeRequest";
constexpr const char* NS_ADDRESSING = "http://www.w3.org/2005/08/addressing";
constexpr const char* ADDRESS_ANONYMOUS = "http://www.w3.org/2005/08/addressing/anonymous";
constexpr const char* SUBSCRIPTION_TIME = "PT60S";
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
  action->AddValue(ACTION_SUBSCRIBE);
  header->AddValue("a:MessageID", CONVIF::GenerateMSGID());
  header->AddMSG("a:ReplyTo")->AddValue("a:Address", ADDRESS_ANONYMOUS);
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
  CONVIFMsg* const subscribe = envelope.AddBody()->AddMSG_XMLNS("Subscribe", NS_NOTIFICATION);
  CGXString consumer;
  consumer.Format("http://%s:%d/subscribe", GXFormatAddress(GetPrimaryIP()).Str().c_str(), m_wEventPort);
  subscribe->AddMSG("ConsumerReference")->AddValue("a:Address", consumer);
  subscribe->AddValue("InitialTerminationTime", SUBSCRIPTION_TIME);
  const std::unique_ptr<CONVIFMsg> reply(
      CONVIF::DoQuery_HTTP(ServiceURL(), "", "", &envelope, QUERY_TIMEOUT_MS));
  return reply != nullptr && reply->FindSubMSG("SubscribeResponse") != nullptr;
}
