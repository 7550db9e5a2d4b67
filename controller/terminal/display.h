// Shows the cameras while the controller runs: a live table on a terminal, progress lines elsewhere, JSON lines
// for programs.
#pragma once

#include "controller/site/camera_status.h"

#include <map>
#include <string>
#include <vector>

class CDisplay {
 public:
  explicit CDisplay(bool json);

  unsigned PeriodMs() const { return m_bTerminal ? 500 : 100; }  // how often to call Update

  // The cameras as they are now. `note`: what the controller itself has to say.
  void Update(const std::vector<CCameraStatus>& cameras, const std::string& note);

 private:
  struct Shown {
    int64_t LinesSaid = 0;
    std::string State;
    size_t Recordings = 0;
    bool Running = false, Picture = false;  // their times
    int64_t Events = 0;
    std::string Call;                      // state
    std::map<std::string, bool> Commands;  // by name: seen
  };
  void Redraw(const std::vector<CCameraStatus>& cameras, const std::string& note);
  void SayOnce(const CCameraStatus& camera, bool* said, const char* what, double seconds) const;
  void SayNews(const CCameraStatus& camera, Shown* shown) const;
  void Progress(const CCameraStatus& camera);
  void Say(const CCameraStatus& camera, const char* what, const std::string& text) const;

  const bool m_bJSON;
  const bool m_bTerminal;
  size_t m_nLines = 0;  // drawn last
  std::string m_Note;
  std::map<int, Shown> m_Shown;
  double m_fStart;
};
