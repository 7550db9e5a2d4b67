// A log file of bounded size, followed by older ones.
#pragma once

#include <string>
#include <string_view>

// PATH is written; when it has become too large it is renamed PATH.1, what was that PATH.2, and so on; the
// oldest goes. Another program that writes to the same PATH is noticed. One thread at a time.
class CLogFile {
 public:
  CLogFile(long long mostBytes, int olderFiles) : m_nMost(mostBytes), m_nOlder(olderFiles) {}
  ~CLogFile();
  CLogFile(const CLogFile&) = delete;
  CLogFile& operator=(const CLogFile&) = delete;

  // A file or a device, not a pipe, which would hold the writer. False with a reason.
  bool Open(const std::string& path, std::string* error);
  bool Write(std::string_view text, std::string* error);  // all of it, else false with a reason

 private:
  bool Reopen(std::string* error);
  void MakeRoom();

  const long long m_nMost;
  const int m_nOlder;
  std::string m_Path;
  int m_iFile = -1;
};
