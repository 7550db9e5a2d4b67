// Alarms that a camera announces by datagrams.
#include "alarm/orvell_packet.h"
#include "camera/ONVIFCam.h"
#include "host/event_server.h"

void CONVIFCam::FileThreadProcessEvent(unsigned char* data, int length) {
  COrvellAlarm alarm;
  if (!alarm.Read(data, length) || !(alarm.DeviceID == SerialNo())) return;
  if (alarm.Active) CEventServer::Instance()->RegisterEvent(ID(), EVENT_MOTION, 0);
  m_iMotionLevel = alarm.Active ? 100 : 0;
}
