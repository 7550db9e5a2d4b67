// How far a camera has come, as its trace lines tell.
#pragma once

#include <string>
#include <string_view>
#include <vector>

class CLoadProgress {
 public:
  void Add(std::string_view line);

  const std::vector<std::string>& Lines() const { return m_Lines; }  // in order; the first LINES_MAX
  const std::string& Step() const { return m_Step; }                 // the step under way or done last
  const std::string& LastLine() const { return m_Last; }
  bool Failed() const { return m_bFailed; }               // the last pass failed and none has got further since
  const std::string& Reason() const { return m_Reason; }  // the step it failed at and the warnings before

  static constexpr size_t LINES_MAX = 500;

 private:
  std::vector<std::string> m_Lines;
  std::string m_Step, m_Last, m_Warning, m_Reason;
  bool m_bFailed = false;
};
