// The alarm datagrams that cameras of the alarm brand send to a multicast group.
#pragma once

#include "sim/model.h"

#include <string>

inline constexpr char ALARM_GROUP[] = "239.255.30.4";
inline constexpr int ALARM_PORT = 30004;

// The bytes of one datagram: `sequence` counts a camera's datagrams, `text` is the alarm in its XML form.
std::string AlarmDatagram(uint32_t sequence, const std::string& text);

// Sends the camera's alarm flag `times` times from its address over the interface of the model. False with a
// reason in `error`, also for a camera of another brand or one that is off. Takes the model's lock.
bool SendAlarm(CCameraModel& model, bool on, int times, std::string* error);
