#include "tests/support/camsim_process.h"

#include "tests/support/places.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

namespace {

using Clock = std::chrono::steady_clock;

constexpr char CONTROL_ADDRESS[] = "127.0.0.10";
constexpr int CONTROL_PORT = 8900;
constexpr int START_MS = 60000;  // the first start on a machine looks at every GStreamer plug-in
constexpr int END_MS = 20000;

int MsUntil(Clock::time_point end) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
  return static_cast<int>(std::max<long long>(left, 0));
}

// Appends what arrives within the time; false at the end of the input, or when the time is over.
bool ReadSome(int fd, Clock::time_point end, std::string* text) {
  pollfd ready{fd, POLLIN, 0};
  if (poll(&ready, 1, MsUntil(end)) <= 0) return false;
  char buffer[65536];
  const ssize_t n = read(fd, buffer, sizeof buffer);
  if (n > 0) text->append(buffer, static_cast<size_t>(n));
  return n > 0;
}

}  // namespace

CCommandResult RunCommand(const std::string& command, int seconds) {
  CCommandResult result;
  FILE* pipe = popen(
      ("exec timeout -k 1 " + std::to_string(seconds) + " sh -c '" + command + "' </dev/null").c_str(), "re");
  if (pipe == nullptr) return result;
  char buffer[65536];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.output.append(buffer, n);
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

std::string Exchange(const std::string& address, int port, const std::string& request, int ms,
                     const std::string& until) {
  const auto end = Clock::now() + std::chrono::milliseconds(ms);
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, address.c_str(), &to.sin_addr);
  std::string answer;
  if (connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0 &&
      send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size()))
    while (ReadSome(fd, end, &answer))
      if (!until.empty() && answer.find(until) != std::string::npos) break;
  close(fd);
  return answer;
}

CCamsim::CCamsim(const std::vector<std::string>& arguments) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  std::vector<char*> argv = {const_cast<char*>("camsim")};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const std::string program = std::string(TEST_BIN_DIR) + "/camsim";
  m_pid = fork();
  if (m_pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that dies leaves none behind
    dup2(ends[1], 1);
    dup2(ends[1], 2);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  close(ends[1]);
  m_pipe = ends[0];
  const auto end = Clock::now() + std::chrono::milliseconds(START_MS);
  while (!m_ready && ReadSome(m_pipe, end, &m_output)) m_ready = m_output.find("ready\n") != std::string::npos;
}

int CCamsim::End() {
  if (m_pid <= 0) return m_status;
  kill(m_pid, SIGTERM);
  const auto end = Clock::now() + std::chrono::milliseconds(END_MS);
  int status = 0;
  while (waitpid(m_pid, &status, WNOHANG) == 0) {
    if (Clock::now() > end) kill(m_pid, SIGKILL);
    usleep(2000);
  }
  close(m_pipe);
  m_pid = -1;
  m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return m_status;
}

nlohmann::json CCamsim::Ask(const std::string& request) {
  const std::string answer = Exchange(CONTROL_ADDRESS, CONTROL_PORT, request);
  const size_t body = answer.find("\r\n\r\n");
  if (body == std::string::npos || !answer.starts_with("HTTP/1.1 200")) return nullptr;
  return nlohmann::json::parse(answer.substr(body + 4), nullptr, false);
}

nlohmann::json CCamsim::Get(const std::string& path) {
  return Ask("GET " + path + " HTTP/1.1\r\nHost: sim\r\nConnection: close\r\n\r\n");
}

nlohmann::json CCamsim::Post(const std::string& path, const nlohmann::json& body) {
  const std::string text = body.dump();
  return Ask("POST " + path + " HTTP/1.1\r\nHost: sim\r\nConnection: close\r\nContent-Length: " +
             std::to_string(text.size()) + "\r\n\r\n" + text);
}

bool CCamsim::Quirks(int number, const nlohmann::json& switches) {
  return !Post("/cameras/" + std::to_string(number) + "/quirks", switches).is_null();
}
