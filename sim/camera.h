#pragma once
// One simulated camera: its model with everything that listens on its address.
#include "sim/door_station.h"
#include "sim/http_front.h"
#include "sim/model.h"
#include "sim/notifier.h"
#include "sim/rtsp_server.h"
#include "sim/services.h"

#include <memory>
#include <mutex>
#include <string>

class CCamera {
 public:
  CCamera(const CIdentity& identity, const std::string& address, int httpPort, int rtspPort, CRtspLoop& loop);
  ~CCamera();

  CCameraModel& Model() { return m_model; }
  // The state as the control address shows it.
  nlohmann::json State();
  // Opens all sockets of the camera; false with a reason in `error`. Off closes them and ends every connection
  // and stream. Any thread; on when on (off when off) does nothing.
  bool PowerOn(std::string* error);
  void PowerOff();
  // Takes another address, as after a new DHCP lease: off, moved, and on again if it was on.
  bool Move(const std::string& address, std::string* error);
  // Motion before the lens begins or ends: the pictures show it and subscribers are told, `times` times.
  void Motion(bool on, int times) { m_notifier.PushMotion(on, times); }

 private:
  CHttpReply Answer(const CHttpRequest& request);
  CHttpReply AnswerSoap(const CHttpRequest& request);
  CHttpReply AnswerSnapshot(const CHttpRequest& request);
  CHttpManner Manner() const;
  bool PowerOnLocked(std::string* error);
  void PowerOffLocked();

  CCameraModel m_model;
  CSoapServer m_soap;
  const std::string m_nonce;  // of HTTP Digest challenges
  CHttpFront m_http;
  CRtspServer m_rtsp;
  std::unique_ptr<CDoorStation> m_door;  // of a door station
  CNotifier m_notifier;
  std::mutex m_powerLock;  // one change of power at a time; taken before the model's lock
  bool m_on = false;
};
