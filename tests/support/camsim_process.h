// The simulated cameras as a test uses them: camsim as a process, its control address, and programs that are
// not ours.
#pragma once

#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// The standard output and exit status of a shell command; status 124 after `seconds` without an end.
struct CCommandResult {
  int status = -1;
  std::string output;  // may hold binary data
};
CCommandResult RunCommand(const std::string& command, int seconds = 60);

// Connects, sends `request`, and returns what comes until the peer closes, `until` (when not empty) has been
// received, or `ms` milliseconds are over.
std::string Exchange(const std::string& address, int port, const std::string& request, int ms = 20000,
                     const std::string& until = "");

class CCamsim {
 public:
  // Starts it with these arguments and waits for "ready"; Ready() tells whether that came.
  explicit CCamsim(const std::vector<std::string>& arguments = {});
  // Ends it with SIGTERM, and with SIGKILL when it is not gone 20 s later.
  ~CCamsim() { End(); }
  CCamsim(const CCamsim&) = delete;
  CCamsim& operator=(const CCamsim&) = delete;

  bool Ready() const { return m_ready; }
  const std::string& Output() const { return m_output; }  // both its outputs until "ready" or its end
  // Exit status (128 + signal when killed); ends it first when it still runs.
  int End();

  // State of one camera (N from 1) or of all ("/cameras"); null when there is no good answer.
  nlohmann::json Get(const std::string& path);
  nlohmann::json Camera(int number) { return Get("/cameras/" + std::to_string(number)); }
  nlohmann::json Post(const std::string& path, const nlohmann::json& body);
  // Turns switches of a camera; false when one is refused.
  bool Quirks(int number, const nlohmann::json& switches);

 private:
  nlohmann::json Ask(const std::string& request);

  pid_t m_pid = -1;
  int m_pipe = -1;  // its outputs; open as long as it runs, so that it can write
  int m_status = -1;
  bool m_ready = false;
  std::string m_output;
};
