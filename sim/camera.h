// One simulated camera: its model with everything that listens on its address.
#pragma once

#include "sim/door_station.h"
#include "sim/http_front.h"
#include "sim/model.h"
#include "sim/notifier.h"
#include "sim/rtsp_server.h"
#include "sim/services.h"

#include <memory>
#include <mutex>
#include <string>

class CSimCamera {
 public:
  CSimCamera(const CSimIdentity& identity, const std::string& address, int httpPort, int rtspPort,
             CRTSPLoop& loop);
  ~CSimCamera();

  CCameraModel& Model() { return m_Model; }
  // The state as the control address shows it.
  nlohmann::json State();
  // Opens all sockets of the camera; false with a reason in `error`. Off closes them and ends every connection
  // and stream. Any thread; on when on (off when off) does nothing.
  bool PowerOn(std::string* error);
  void PowerOff();
  // Takes another address, as after a new DHCP lease: off, moved, and on again if it was on.
  bool Move(const std::string& address, std::string* error);
  // Motion before the lens begins or ends: the pictures show it and subscribers are told, `times` times.
  void Motion(bool on, int times) { m_Notifier.PushMotion(on, times); }

 private:
  CHTTPReply Answer(const CHTTPRequest& request);
  CHTTPReply AnswerSOAP(const CHTTPRequest& request);
  CHTTPReply AnswerSnapshot(const CHTTPRequest& request);
  CHTTPManner Manner() const;
  bool PowerOnLocked(std::string* error);
  void PowerOffLocked();

  CCameraModel m_Model;
  CSOAPServer m_SOAP;
  const std::string m_Nonce;  // of HTTP Digest challenges
  CHTTPFront m_HTTP;
  CRTSPFront m_RTSP;
  std::unique_ptr<CDoorStation> m_PDoor;  // of a door station
  CNotifier m_Notifier;
  std::mutex m_PowerLock;  // one change of power at a time; taken before the model's lock
  bool m_BOn = false;
};
