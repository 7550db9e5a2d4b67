// The latest events that the cameras have raised. Main thread.
#pragma once

#include "host/system/event_server.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

std::string UTCNow();  // "2026-11-23T08:15:30.125Z"

struct CEventEntry {
  uint64_t Number = 0;  // 1, 2, ... in the order of arrival
  std::string Time;     // UTCNow()
  std::string Camera;   // its name
  GXT_EVENT Event{};
};

// "motion" for event 2275, else "event NUMBER".
std::string EventName(int event);

class CEventList {
 public:
  static constexpr size_t MOST = 1000;  // kept; older ones are dropped

  void Add(const GXT_EVENT& event, const std::string& camera);
  uint64_t Latest() const { return m_nLatest; }           // number of the last one; 0: none yet
  std::vector<CEventEntry> Since(uint64_t number) const;  // those with a higher number

 private:
  std::deque<CEventEntry> m_Entries;
  uint64_t m_nLatest = 0;
};
