// How far a camera has come, as its trace lines tell.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class CLoadProgress {
 public:
  void Add(std::string_view line);  // anything: it is cleaned and bounded

  // What was said last, in order. When there is too much, notices of events and the like go first, so that the
  // steps of the last load stay.
  std::vector<std::string> Lines() const;
  int64_t Said() const { return m_nSaid; }  // how many lines there have been, those included that went
  const std::string& Step() const { return m_Step; }  // the step under way or done last
  const std::string& LastLine() const { return m_Last; }
  bool Failed() const { return m_bFailed; }               // the last pass failed and none has got further since
  const std::string& Reason() const { return m_Reason; }  // the step it failed at and the warnings before

  static constexpr size_t LINES_MAX = 500, LINE_BYTES = 300;

 private:
  struct Line {
    std::string Text;
    bool Step;  // of a load
  };
  void DropBeyondMost();

  std::vector<Line> m_Lines;
  int64_t m_nSaid = 0;
  std::string m_Step, m_Last, m_Warning, m_Reason;
  bool m_bFailed = false;
};
