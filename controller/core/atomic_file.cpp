#include "controller/core/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>

namespace {

bool Fail(const std::string& what, std::string* error) {
  *error = what + ": " + std::strerror(errno);
  return false;
}

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

bool WriteTemporary(const std::string& path, std::string_view bytes, unsigned mode, bool durable,
                    std::string* error) {
  unlink(path.c_str());  // a left-over of an earlier run may have another mode
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
  if (fd < 0) return Fail(path, error);
  const bool good = WriteAll(fd, bytes) && (!durable || fsync(fd) == 0);
  if (!good) Fail(path, error);
  if (close(fd) != 0 && good) return Fail(path, error);
  return good;
}

void SyncFolderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  const int fd = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

}  // namespace

bool ReplaceFile(const std::string& path, std::string_view bytes, unsigned mode, bool durable,
                 std::string* error) {
  const std::string temporary = path + ".tmp";
  if (!WriteTemporary(temporary, bytes, mode, durable, error)) {
    unlink(temporary.c_str());
    return false;
  }
  if (rename(temporary.c_str(), path.c_str()) != 0) {
    Fail(path, error);
    unlink(temporary.c_str());
    return false;
  }
  if (durable) SyncFolderOf(path);
  return true;
}

int CreateFile(const std::string& path, std::string* error) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, PRIVATE_FILE_MODE);
  if (fd < 0) Fail(path, error);
  return fd;
}

bool MakeFolder(const std::string& path, std::string* error) {
  std::filesystem::path folder;
  for (const auto& part : std::filesystem::path(path)) {
    folder /= part;
    mkdir(folder.c_str(), PRIVATE_FOLDER_MODE);  // fails for those that are there
  }
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) return Fail(path, error);
  if (S_ISDIR(info.st_mode)) return true;
  errno = ENOTDIR;
  return Fail(path, error);
}

std::string SafeFileName(std::string_view name) {
  std::string safe;
  for (const char c : name) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                       c == '_' || c == '-';
    safe += plain ? c : '-';
  }
  if (safe.empty() || safe[0] == '.') safe.insert(0, 1, '_');
  return safe.substr(0, 100);
}

std::string NewFilePath(const std::string& stem, const char* ending) {
  // UTC, so that names sort by time on the nights when local clocks are put back too.
  const auto path = [&](std::chrono::milliseconds at) {
    const time_t seconds = at.count() / 1000;
    tm utc{};
    gmtime_r(&seconds, &utc);
    char stamp[32], text[48];
    std::strftime(stamp, sizeof stamp, "-%Y%m%d-%H%M%S", &utc);
    std::snprintf(text, sizeof text, "%s-%03dZ", stamp, static_cast<int>(at.count() % 1000));
    return stem + text + ending;
  };
  auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::system_clock::now().time_since_epoch());
  while (access(path(now).c_str(), F_OK) == 0) ++now;
  return path(now);
}
