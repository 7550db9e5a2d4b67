// What is wrong at present with the controller or with one of its cameras: for `status`, the display and the
// summary.
#pragma once

#include "host/base/gxthread.h"

#include <chrono>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <utility>
#include <vector>

struct CProblem {
  std::string What;   // names it among those of its camera: "site file", "recording"
  int CameraID = 0;   // 0: the controller's own
  std::string Text;   // why, in plain words, one printable line: "/data/site.json: No space left on device"
  std::string Since;  // UTC, "2026-11-23T08:15:30.125Z"
  int NextTryS = -1;  // seconds until it is tried again; -1: nothing tries it by itself
};

// One a process, as the log is. Any thread; waits for nobody and takes no other lock than the log's, so it may
// be called under any lock but the trace's.
class CProblemList {
 public:
  static constexpr size_t MOST = 1000;       // further ones are not taken
  static constexpr size_t MOST_BYTES = 300;  // of a text; what is longer is cut

  static CProblemList* Instance();

  // Something does not work: said again it keeps its beginning, takes the new text, and is logged only when the
  // text has changed. `retry`: when it is tried again; negative: not by itself.
  void Raise(const std::string& what, int cameraID, const std::string& text,
             std::chrono::milliseconds retry = std::chrono::milliseconds(-1));
  void Clear(const std::string& what, int cameraID);  // it works (again); nothing happens when it did
  void ForgetCamera(int cameraID);                    // that was removed

  std::vector<CProblem> All() const;  // the controller's own first, then by camera
  std::vector<CProblem> Of(int cameraID) const;

 private:
  using Clock = std::chrono::steady_clock;
  struct Entry {
    std::string Text, Since;
    Clock::time_point NextTry;  // never: max()
  };
  using Key = std::pair<int, std::string>;  // camera, what
  static CProblem Told(const Key& key, const Entry& entry);

  mutable CGXCritical m_Lock;
  std::map<Key, Entry> m_Entries GUARDED_BY(m_Lock);
};

// [{"what": ..., "camera_id": 0, "text": ..., "since": ..., "next_try_s": 5 or null}, ...]
nlohmann::json ProblemsJSON(const std::vector<CProblem>& problems);
// "PROBLEM recording: /data/recordings: No space left on device (since ..., tried again in 5 s)"
std::string ProblemLine(const CProblem& problem);
