// The speaker of a door station: answers SIP calls at the camera's address and plays what they bring.
#pragma once

#include "sim/model.h"
#include "sim/sip_callee.h"
#include "sim/speaker.h"

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

class CDoorStation {
 public:
  explicit CDoorStation(CCameraModel& model) : m_Model(model) {}
  ~CDoorStation() { Stop(); }
  // Listens on the camera's present address. False with a reason in `error`.
  bool Start(std::string* error);
  // Ends the present call without a word to the caller, as a camera without power does. May start again.
  void Stop();
  // {"call": the present one or null, "calls": the latest ones that ended, "answered": how many there were}
  nlohmann::json ToJSON();

 private:
  void Run();
  void ReceiveSip();
  void ReceiveSound();
  int OpenSpeaker();
  void CloseCall(const CSIPCallState& last);
  nlohmann::json CallToJson(const CSIPCallState& call) const;

  CCameraModel& m_Model;
  int m_ISIP = -1, m_IWake = -1;
  std::atomic<bool> m_BStop{false};
  std::thread m_Thread;
  std::mutex m_Lock;  // guards what follows; taken before the model's lock
  int m_ISound = -1, m_NAnswered = 0, m_INextPort = 0;
  CSpeaker m_Speaker;
  std::unique_ptr<CSIPCallee> m_PCallee;
  std::deque<nlohmann::json> m_Ended;
};
