#include "sim/alarm.h"

#include "sim/services.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr uint32_t ALARM_CODE = 554;
constexpr size_t BLOCK = 32;  // bytes of a text block of the header

void Put(std::string* out, uint32_t value, int bytes) {
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) out->push_back(static_cast<char>(value >> shift));
}

void PutBlock(std::string* out, const char* text) {
  const size_t end = out->size() + BLOCK;
  out->append(text);
  out->resize(end);
}

std::string AlarmText(const CCameraModel& model, bool on) {
  return "<AlarmInfoEx DeviceId=\"" + model.Identity.Serial + "\" DeviceName=\"" + model.Identity.Name +
         "\" Channel=\"1\" AlarmType=\"Motion\" AlarmFlag=\"" + (on ? "1" : "0") + "\" Time=\"" +
         UTCText(model.Clock()) + "\"/>";
}

}  // namespace

std::string AlarmDatagram(uint32_t sequence, const std::string& text) {
  std::string out;
  Put(&out, 1, 1);         // version
  Put(&out, 0, 1);         // flags
  Put(&out, sequence, 4);  // of the message
  Put(&out, 1, 4);         // session
  Put(&out, 1, 1);         // channel
  Put(&out, 0, 4);         // status
  Put(&out, 1, 2);         // parts
  Put(&out, 0, 3);         // reserved
  Put(&out, static_cast<uint32_t>(text.size() + 76), 4);
  Put(&out, ALARM_CODE, 4);
  Put(&out, 0, 1);
  PutBlock(&out, "admin");
  PutBlock(&out, "");
  Put(&out, 0, 1);
  Put(&out, 0, 2);
  Put(&out, static_cast<uint32_t>(text.size()), 4);
  return out + text;
}

bool SendAlarm(CCameraModel& model, bool on, int times, std::string* error) {
  const std::lock_guard guard(model.Lock);
  if (model.Identity.Kind != "alarm" || !model.Powered) {
    *error = model.Powered ? "only cameras of the kind 'alarm' send alarms" : "the camera is off";
    return false;
  }
  sockaddr_in from{}, to{};
  in_addr interface {};
  from.sin_family = to.sin_family = AF_INET;
  to.sin_port = htons(ALARM_PORT);
  inet_pton(AF_INET, model.Address.c_str(), &from.sin_addr);
  inet_pton(AF_INET, ALARM_GROUP, &to.sin_addr);
  inet_pton(AF_INET, model.InterfaceAddress.c_str(), &interface);
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  bool sent = bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof from) == 0 &&
              setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface) == 0;
  for (int i = 0; sent && i < times; ++i) {
    const std::string bytes = AlarmDatagram(++model.AlarmsSent, AlarmText(model, on));
    sent = sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) ==
           static_cast<ssize_t>(bytes.size());
  }
  if (!sent) *error = std::string("the alarm cannot be sent: ") + std::strerror(errno);
  if (fd >= 0) close(fd);
  if (sent) model.Alarm = on;
  return sent;
}
