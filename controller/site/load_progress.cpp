#include "controller/site/load_progress.h"

namespace {

bool IsWarning(std::string_view line) {
  return line.starts_with("WARNING") || line.starts_with("ERROR");
}

// "lvl 0812 Decoded 80 bytes -> 160 samples": one for each packet of a talk.
bool IsSoundLevel(std::string_view line) {
  return line.starts_with("lvl ");
}

// "Loading Profile Configs...": a step begins.
bool IsStep(std::string_view line) {
  return line.ends_with("...");
}

}  // namespace

void CLoadProgress::Add(std::string_view line) {
  if (IsSoundLevel(line)) return;
  m_Last = line;
  if (m_Lines.size() < LINES_MAX) m_Lines.emplace_back(line);
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
