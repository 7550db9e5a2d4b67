// Saves delivered JPEG pictures: the latest of each stream, and on request every one. A thread of its own
// writes.
#pragma once

#include "controller/recording/picture_info.h"
#include "host/base/gxthread.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

class CPictureStore {
 public:
  // `latestFolder`: NAME.jpg is replaced about once a second; `keepFolder`: NAME-000001.jpg and so on. Empty:
  // not wanted. The folders exist.
  CPictureStore(std::string latestFolder, std::string keepFolder);
  ~CPictureStore();  // writes what has arrived

  // A picture of that stream; copied. Any thread, never blocks on the disk.
  void Add(const std::string& name, CBytes picture);

  std::string LatestPath(const std::string& name) const;  // empty when not wanted
  std::string KeptPath(const std::string& name) const;    // pattern of the kept ones; empty when not wanted
  std::string Error() const;                              // what is wrong at present; empty when all is well

 private:
  struct Job {
    std::string Path;
    std::vector<unsigned char> Bytes;
  };
  void Queue(std::string path, CBytes picture, bool keep);
  bool HasThread();
  static unsigned Entrance(void* self);
  void Run();

  const std::string m_Latest, m_Keep;
  mutable std::mutex m_Lock;
  std::condition_variable m_Wake;
  std::deque<Job> m_Jobs;                       // m_Lock
  size_t m_nQueued = 0;                         // bytes; m_Lock
  std::map<std::string, int64_t> m_Seen;        // pictures of each stream; m_Lock
  std::map<std::string, int64_t> m_LatestDue;   // ms; m_Lock
  std::string m_Error;                          // m_Lock
  int64_t m_nLost = 0;                          // that were to be kept; m_Lock
  int64_t m_nLostAt = 0, m_nThreadRetryAt = 0;  // ms; 0: never; m_Lock
  bool m_bStop = false;                         // m_Lock
  CGXThread m_Thread;
};
