#include "controller/core/log.h"

#include "controller/core/log_file.h"
#include "controller/core/log_thinner.h"
#include "controller/core/printable.h"
#include "controller/core/problems.h"
#include "host/base/gxthread.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

constexpr size_t QUEUE_BYTES = 1u << 20;  // that wait for the disk; further lines are dropped and counted
constexpr int WRITE_PERIOD_MS = 100;
constexpr char DRIVER[] = "driver";
constexpr char LOG_PROBLEM[] = "log";

int g_iResult = STDOUT_FILENO;

std::string Stamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char text[64];
  const size_t n = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  std::snprintf(text + n, sizeof text - n, ".%03ld [%ld] ", now.tv_nsec / 1000000, syscall(SYS_gettid));
  return text;
}

// One a process. Lines wait in a bounded text; the thread writes it, and reads what is printed on standard
// output. When there is no thread to be had, whoever logs asks for one again.
class CLog {
 public:
  bool Open(const std::string& path, std::string* error);
  void Close();
  void Add(const std::string& line, const std::string& speaker);

 private:
  static unsigned Run(void* self);
  void ReadPrints();
  void Flush();

  CLogFile m_File{LOG_FILE_BYTES, LOG_OLDER_FILES};  // the thread's
  std::string m_Printed;                             // the thread's: an unfinished line of standard output
  int m_iPrints = -1;                                // read end
  CGXCritical m_Lock;
  bool m_bOpen GUARDED_BY(m_Lock) = false;
  std::string m_Waiting GUARDED_BY(m_Lock);
  int64_t m_nDropped GUARDED_BY(m_Lock) = 0;
  CLogThinner m_Thinner GUARDED_BY(m_Lock);
  CGXThread m_Thread;
};

CLog* TheLog() {
  static CLog* const log = new CLog;  // threads that end last may still log
  return log;
}

bool CLog::Open(const std::string& path, std::string* error) {
  if (!m_File.Open(path, error)) return false;
  int pipes[2] = {-1, -1};
  const int result = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  // A full pipe loses a print rather than holding the driver.
  if (result < 0 || pipe2(pipes, O_NONBLOCK | O_CLOEXEC) != 0 || dup2(pipes[1], STDOUT_FILENO) < 0) {
    *error = std::string("standard output cannot be kept: ") + std::strerror(errno);
    for (const int fd : {result, pipes[0], pipes[1]})
      if (fd >= 0) close(fd);
    return false;
  }
  close(pipes[1]);
  m_iPrints = pipes[0];
  g_iResult = result;
  setvbuf(stdout, nullptr, _IOLBF, 0);
  CGXLock lock(m_Lock);
  m_bOpen = true;
  m_Thread.Start(Run, this, 0, "Log");
  return true;
}

void CLog::Close() {
  {
    CGXLock lock(m_Lock);
    if (!m_bOpen) return;
    m_bOpen = false;
  }
  std::fflush(stdout);
  m_Thread.Cancel();
  m_Thread.Join();
  ReadPrints();
  Flush();
}

void CLog::Add(const std::string& line, const std::string& speaker) {
  const std::string shown = Bounded(Printable(Bounded(line, 2 * LOG_LINE_BYTES)), LOG_LINE_BYTES);
  CGXLock lock(m_Lock);
  std::string note;
  if (!m_Thinner.Passes(speaker, shown, CLogThinner::Clock::now(), &note)) return;
  if (m_Waiting.size() > QUEUE_BYTES) {
    ++m_nDropped;
    return;
  }
  if (m_nDropped > 0)
    m_Waiting += Stamp() + std::to_string(m_nDropped) + " lines were lost, the disk is slow\n";
  m_nDropped = 0;
  m_Waiting += Stamp() + shown + note + "\n";
  if (m_bOpen && !m_Thread.IsRunning()) m_Thread.Start(Run, this, 0, "Log");
}

unsigned CLog::Run(void* self) {
  auto* const log = static_cast<CLog*>(self);
  while (!CGXThread::CurrentCancelled()) {
    pollfd wait[] = {{log->m_iPrints, POLLIN, 0}, {CGXThread::CurrentCancelDescriptor(), POLLIN, 0}};
    poll(&wait[1], 1, WRITE_PERIOD_MS);
    if (poll(wait, 1, 0) > 0) log->ReadPrints();
    log->Flush();
  }
  return 0;
}

void CLog::ReadPrints() {
  char bytes[4096];
  // Bounded, so that a flood of prints does not keep the lines waiting.
  for (int i = 0; i < 64; ++i) {
    const ssize_t n = read(m_iPrints, bytes, sizeof bytes);
    if (n <= 0) return;
    m_Printed.append(bytes, static_cast<size_t>(n));
    size_t begin = 0;
    for (size_t end; (end = m_Printed.find('\n', begin)) != std::string::npos; begin = end + 1) {
      std::string line = m_Printed.substr(begin, end - begin);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      Add(std::string(DRIVER) + " printed: " + line, DRIVER);
    }
    m_Printed.erase(0, begin);
    if (m_Printed.size() > LOG_LINE_BYTES) m_Printed.clear();
  }
}

void CLog::Flush() {
  std::string text, error;
  {
    CGXLock lock(m_Lock);
    text.swap(m_Waiting);
  }
  if (text.empty()) return;
  if (m_File.Write(text, &error))
    CProblemList::Instance()->Clear(LOG_PROBLEM, 0);
  else
    CProblemList::Instance()->Raise(LOG_PROBLEM, 0, "lines are lost: " + error,
                                    std::chrono::milliseconds(WRITE_PERIOD_MS));
}

}  // namespace

bool OpenLog(const std::string& path, std::string* error) {
  return TheLog()->Open(path, error);
}

void CloseLog() {
  TheLog()->Close();
}

void Log(const std::string& line, const std::string& speaker) {
  TheLog()->Add(line, speaker);
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
