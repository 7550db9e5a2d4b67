#pragma once
// The speaker of a door station: answers SIP calls at the camera's address and plays what they bring.
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
  explicit CDoorStation(CCameraModel& model) : m_model(model) {}
  ~CDoorStation() { Stop(); }
  // Listens on the camera's present address. False with a reason in `error`.
  bool Start(std::string* error);
  // Ends the present call without a word to the caller, as a camera without power does. May start again.
  void Stop();
  // {"call": the present one or null, "calls": the latest ones that ended, "answered": how many there were}
  nlohmann::json ToJson();

 private:
  void Run();
  void ReceiveSip();
  void ReceiveSound();
  int OpenSpeaker();
  void CloseCall(const CSipCallState& last);
  nlohmann::json CallToJson(const CSipCallState& call) const;

  CCameraModel& m_model;
  int m_sip = -1, m_wake = -1;
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
  std::mutex m_lock;  // guards what follows; taken before the model's lock
  int m_sound = -1, m_answered = 0, m_nextPort = 0;
  CSpeaker m_speaker;
  std::unique_ptr<CSipCallee> m_callee;
  std::deque<nlohmann::json> m_ended;
};
