#include "controller/core/problems.h"

#include "controller/core/event_list.h"
#include "controller/core/log.h"
#include "controller/core/printable.h"

#include <algorithm>
#include <nlohmann/json.hpp>

using nlohmann::json;

CProblemList* CProblemList::Instance() {
  // Never destroyed: threads that end last may still have something to say.
  static CProblemList* const list = new CProblemList;
  return list;
}

void CProblemList::Raise(const std::string& what, int cameraID, const std::string& text,
                         std::chrono::milliseconds retry) {
  const std::string shown = Bounded(Printable(text), MOST_BYTES);
  {
    CGXLock lock(m_Lock);
    const Key key(cameraID, what);
    auto entry = m_Entries.find(key);
    if (entry == m_Entries.end()) {
      if (m_Entries.size() >= MOST) return;
      entry = m_Entries.emplace(key, Entry{"", UTCNow(), {}}).first;
    }
    entry->second.NextTry = retry.count() < 0 ? Clock::time_point::max() : Clock::now() + retry;
    if (entry->second.Text == shown) return;
    entry->second.Text = shown;
  }
  Log("PROBLEM " + what + (cameraID != 0 ? " of camera " + std::to_string(cameraID) : "") + ": " + shown);
}

void CProblemList::Clear(const std::string& what, int cameraID) {
  {
    CGXLock lock(m_Lock);
    if (m_Entries.erase(Key(cameraID, what)) == 0) return;
  }
  Log("PROBLEM over: " + what + (cameraID != 0 ? " of camera " + std::to_string(cameraID) : ""));
}

void CProblemList::ForgetCamera(int cameraID) {
  CGXLock lock(m_Lock);
  std::erase_if(m_Entries, [cameraID](const auto& entry) { return entry.first.first == cameraID; });
}

CProblem CProblemList::Told(const Key& key, const Entry& entry) {
  CProblem problem{key.second, key.first, entry.Text, entry.Since, -1};
  if (entry.NextTry == Clock::time_point::max()) return problem;
  const auto left = std::chrono::ceil<std::chrono::seconds>(entry.NextTry - Clock::now()).count();
  problem.NextTryS = static_cast<int>(std::max<decltype(left)>(left, 0));
  return problem;
}

std::vector<CProblem> CProblemList::All() const {
  std::vector<CProblem> all;
  CGXLock lock(m_Lock);
  for (const auto& [key, entry] : m_Entries) all.push_back(Told(key, entry));
  return all;
}

std::vector<CProblem> CProblemList::Of(int cameraID) const {
  std::vector<CProblem> list = All();
  std::erase_if(list, [cameraID](const CProblem& problem) { return problem.CameraID != cameraID; });
  return list;
}

json ProblemsJSON(const std::vector<CProblem>& problems) {
  json list = json::array();
  for (const CProblem& problem : problems)
    list.push_back({{"what", problem.What},
                    {"camera_id", problem.CameraID},
                    {"text", problem.Text},
                    {"since", problem.Since},
                    {"next_try_s", problem.NextTryS < 0 ? json(nullptr) : json(problem.NextTryS)}});
  return list;
}

std::string ProblemLine(const CProblem& problem) {
  std::string line = "PROBLEM " + problem.What + ": " + problem.Text + " (since " + problem.Since;
  if (problem.NextTryS >= 0) line += ", tried again in " + std::to_string(problem.NextTryS) + " s";
  return line + ")";
}
