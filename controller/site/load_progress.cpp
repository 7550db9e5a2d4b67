#include "controller/site/load_progress.h"

#include "controller/core/printable.h"

#include <algorithm>

namespace {

bool IsWarning(std::string_view line) {
  return line.starts_with("WARNING") || line.starts_with("ERROR");
}

// "lvl 0812 Decoded 80 bytes -> 160 samples": one for each packet of a talk.
bool IsSoundLevel(std::string_view line) {
  return line.starts_with("lvl ");
}

// "Src VSC_0 Key : Data IsMotion:true": what an event is about, in words that anybody can send.
bool IsEvent(std::string_view line) {
  return line.starts_with("Src ");
}

bool IsResult(std::string_view line) {
  return line == "Success" || line == "SUCCESS" || line == "FAILED";
}

// "Loading Profile Configs...": a step begins.
bool IsStep(std::string_view line) {
  return line.ends_with("...");
}

}  // namespace

void CLoadProgress::DropBeyondMost() {
  if (m_Lines.size() <= LINES_MAX) return;
  const auto notice = std::ranges::find_if(m_Lines, [](const Line& line) { return !line.Step; });
  m_Lines.erase(notice != m_Lines.end() ? notice : m_Lines.begin());
}

std::vector<std::string> CLoadProgress::Lines() const {
  std::vector<std::string> lines;
  for (const Line& line : m_Lines) lines.push_back(line.Text);
  return lines;
}

void CLoadProgress::Add(std::string_view said) {
  if (IsSoundLevel(said)) return;
  const std::string line = Bounded(Printable(std::string(said.substr(0, 2 * LINE_BYTES))), LINE_BYTES);
  m_Last = line;
  ++m_nSaid;
  m_Lines.push_back({line, !IsEvent(line) && (IsStep(line) || IsWarning(line) || IsResult(line))});
  if (IsEvent(line)) return DropBeyondMost();
  DropBeyondMost();
  if (IsStep(line)) {
    m_Step = line;
  } else if (IsWarning(line)) {
    m_Warning = line;
  } else if (line == "Success" || line == "SUCCESS") {
    m_bFailed = false;
    m_Warning.clear();
  } else if (line == "FAILED") {
    m_bFailed = true;
    m_Reason = m_Step + " FAILED" + (m_Warning.empty() ? "" : " (" + m_Warning + ")");
    m_Warning.clear();
  }
}
