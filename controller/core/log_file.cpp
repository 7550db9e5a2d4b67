#include "controller/core/log_file.h"

#include "controller/core/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

CLogFile::~CLogFile() {
  if (m_iFile >= 0) close(m_iFile);
}

bool CLogFile::Open(const std::string& path, std::string* error) {
  m_Path = path;
  return Reopen(error);
}

bool CLogFile::Reopen(std::string* error) {
  // O_NONBLOCK: a pipe that nobody reads must not hold the opener.
  const int file =
      open(m_Path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC, PRIVATE_FILE_MODE);
  struct stat info {};
  if (file < 0 || fstat(file, &info) != 0 || S_ISFIFO(info.st_mode)) {
    *error = m_Path + ": " + (file < 0 ? std::strerror(errno) : "not a file");
    if (file >= 0) close(file);
    return false;
  }
  if (m_iFile >= 0) close(m_iFile);
  m_iFile = file;
  return true;
}

void CLogFile::MakeRoom() {
  struct stat mine {
  }, named{};
  std::string ignored;
  const bool open = m_iFile >= 0 && fstat(m_iFile, &mine) == 0;
  const bool same = open && stat(m_Path.c_str(), &named) == 0 && named.st_ino == mine.st_ino;
  if (same && (!S_ISREG(mine.st_mode) || mine.st_size < m_nMost)) return;
  if (same) {
    for (int i = m_nOlder; i > 1; --i)
      std::rename((m_Path + "." + std::to_string(i - 1)).c_str(), (m_Path + "." + std::to_string(i)).c_str());
    std::rename(m_Path.c_str(), (m_Path + ".1").c_str());
  }
  Reopen(&ignored);  // else it goes on with the one that it has
}

bool CLogFile::Write(std::string_view text, std::string* error) {
  MakeRoom();
  while (!text.empty()) {
    const ssize_t n = m_iFile < 0 ? -1 : write(m_iFile, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      *error = m_Path + ": " + std::strerror(errno);
      return false;
    }
    text.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}
