#include "controller/core/event_list.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>

std::string UTCNow() {
  using namespace std::chrono;
  const auto now = system_clock::now();
  const std::time_t seconds = system_clock::to_time_t(now);
  const auto ms = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[64];
  const size_t length = std::strftime(text, sizeof text, "%FT%T", &utc);
  std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(ms));
  return text;
}

std::string EventName(int event) {
  return event == EVENT_MOTION ? "motion" : "event " + std::to_string(event);
}

void CEventList::Add(const GXT_EVENT& event, const std::string& camera) {
  m_Entries.push_back({++m_nLatest, UTCNow(), camera, event});
  if (m_Entries.size() > MOST) m_Entries.pop_front();
}

std::vector<CEventEntry> CEventList::Since(uint64_t number) const {
  const auto first = std::ranges::upper_bound(m_Entries, number, {}, &CEventEntry::Number);
  return {first, m_Entries.end()};
}
