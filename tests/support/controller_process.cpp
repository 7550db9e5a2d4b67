#include "tests/support/controller_process.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

std::string Text(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

CControllerProcess::CControllerProcess(const std::vector<std::string>& arguments) : m_iPid(fork()) {
  if (m_iPid != 0) return;
  std::vector<char*> argv = {const_cast<char*>("controller")};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  if (freopen("/dev/null", "w", stdout) != nullptr) execv(kController.c_str(), argv.data());
  _exit(127);
}

CControllerProcess::~CControllerProcess() {
  End(SIGKILL);
}

double CControllerProcess::End(int signal, int* status) {
  if (m_iPid <= 0) return 0;
  const auto start = Clock::now();
  kill(m_iPid, signal);
  int how = 0;
  waitpid(m_iPid, &how, 0);
  m_iPid = -1;
  if (status != nullptr) *status = WIFEXITED(how) ? WEXITSTATUS(how) : 128 + WTERMSIG(how);
  return SecondsSince(start);
}
