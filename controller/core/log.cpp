#include "controller/core/log.h"

#include <fcntl.h>
#include <spdlog/async.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t QUEUE_LINES = 8192;  // beyond that the oldest are dropped

int g_iResult = STDOUT_FILENO;

}  // namespace

bool OpenLog(const std::string& path, std::string* error) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
  const int result = file < 0 ? -1 : fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  const bool good = result >= 0 && dup2(file, STDOUT_FILENO) >= 0;
  if (!good) *error = path + ": " + std::strerror(errno);
  if (file >= 0) close(file);
  if (!good) return false;
  g_iResult = result;
  setvbuf(stdout, nullptr, _IOLBF, 0);
  // The driver speaks on its stream threads and under its locks: a slow disk must not hold them.
  spdlog::init_thread_pool(QUEUE_LINES, 1);
  auto logger = std::make_shared<spdlog::async_logger>(
      "controller", std::make_shared<spdlog::sinks::stdout_sink_mt>(), spdlog::thread_pool(),
      spdlog::async_overflow_policy::overrun_oldest);
  logger->set_pattern("%Y-%m-%d %H:%M:%S.%e [%t] %v");
  spdlog::set_default_logger(std::move(logger));
  return true;
}

void CloseLog() {
  spdlog::shutdown();
}

void Log(const std::string& line) {
  if (auto* logger = spdlog::default_logger_raw()) logger->info("{}", line);
}

int ResultDescriptor() {
  return g_iResult;
}

void WriteResult(std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = write(g_iResult, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    text.remove_prefix(static_cast<size_t>(n));
  }
}

void WriteProblem(std::string_view text) {
  const std::string line = "controller: " + std::string(text) + "\n";
  if (write(STDERR_FILENO, line.data(), line.size()) < 0) {
    // Nobody is left to tell.
  }
}
