// The camera's events: its port, and what a notification says.
#include "camera/ONVIFCam.h"
#include "host/net/port_table.h"
#include "host/system/event_server.h"
#include "onvif/onvif_msg.h"
#include "util/plain_text.h"

namespace {

constexpr unsigned short FIRST_EVENT_PORT = 8795;
constexpr int ASSERT_PORTS_EXHAUSTED = 3633;
constexpr size_t MOST_TRACED_BYTES = 100;  // of each text: anybody may send them, and they go into a log

}  // namespace

unsigned short CONVIFCam::g_wEventPorts[CPortTable::MOST];
int CONVIFCam::g_iNEventPorts = 0;
CPortTable CONVIFCam::g_EventPortTable(g_wEventPorts, g_iNEventPorts, FIRST_EVENT_PORT, "ONVIFCam",
                                       ASSERT_PORTS_EXHAUSTED);

unsigned short CONVIFCam::GetEventPort() {
  return g_EventPortTable.Take();
}

void CONVIFCam::FreeEventPort(unsigned short port) {
  g_EventPortTable.Free(port);
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
    const auto plain = [](const CGXString& text) { return PlainText(text.Str(), MOST_TRACED_BYTES); };
    CGXString line;
    line.Format("Src %s:%s Key %s:%s Data %s:%s", plain(sourceName).c_str(), plain(source).c_str(),
                plain(keyName).c_str(), plain(key).c_str(), plain(dataName).c_str(), plain(data).c_str());
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
