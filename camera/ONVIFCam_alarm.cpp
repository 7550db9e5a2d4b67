// Alarms that a camera announces by datagrams.
#include "alarm/orvell_packet.h"
#include "camera/ONVIFCam.h"

void CONVIFCam::FileThreadProcessEvent(unsigned char* data, int length) {
  COrvellAlarm alarm;
  if (alarm.Read(data, length) && alarm.DeviceID == SerialNo()) ReportMotion(alarm.Active);
}
