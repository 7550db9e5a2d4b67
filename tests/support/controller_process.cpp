#include "tests/support/controller_process.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace {

constexpr double PATIENCE = 120;  // seconds; who is not found at once is looked for again after 60
constexpr double LONGEST_END = 20;

std::string NewFolder() {
  char folder[] = "/tmp/controller-test-XXXXXX";
  return mkdtemp(folder);
}

std::map<std::string, nlohmann::json> ByName(const nlohmann::json& answer) {
  std::map<std::string, nlohmann::json> cameras;
  for (const nlohmann::json& camera : answer.value("cameras", nlohmann::json::array()))
    cameras[camera["name"]] = camera;
  return cameras;
}

bool Has(const CCommandResult& result, const char* text) {
  return result.output.find(text) != std::string::npos;
}

}  // namespace

std::string Text(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

CControllerProcess::CControllerProcess(const std::string& arguments, const std::string& output) {
  std::istringstream list("controller " + arguments);
  std::vector<std::string> words{std::istream_iterator<std::string>(list), {}};
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  m_iPid = fork();
  if (m_iPid != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that dies leaves none behind
  if (freopen(output.c_str(), "w", stdout) != nullptr) execv(CONTROLLER.c_str(), argv.data());
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

CFolderTest::CFolderTest() : m_Folder(NewFolder()) {}

CFolderTest::~CFolderTest() {
  std::filesystem::remove_all(m_Folder);
}

CControllerTest::CControllerTest() {
  setenv("CONTROLLER_PASSWORD", "secret", 1);
}

void CControllerTest::Start(const std::string& arguments) {
  m_pController = std::make_unique<CControllerProcess>("run --interface lo --data " + m_Folder + " --summary " +
                                                       m_Folder + "/summary.json " + arguments);
}

CControllerTest::Cameras CControllerTest::End() {
  int status = -1;
  EXPECT_LT(m_pController->End(SIGTERM, &status), LONGEST_END);
  EXPECT_EQ(status, 0);
  const Json summary = Json::parse(Text(m_Folder + "/summary.json"), nullptr, false);
  return summary.is_object() ? ByName(summary) : Cameras();
}

CCommandResult CControllerTest::Ask(const std::string& command) const {
  CCommandResult result;
  Eventually(PATIENCE, [&] {
    result = RunCommand(CONTROLLER + " " + command + " --data " + m_Folder + " 2>&1");
    return !Has(result, "is not in service");
  });
  return result;
}

CControllerTest::Json CControllerTest::Good(const std::string& command) const {
  CCommandResult result;
  Eventually(PATIENCE, [&] {
    result = Ask(command + " --json");
    return !Has(result, "has not confirmed");
  });
  EXPECT_EQ(result.status, 0) << command << ": " << result.output;
  return Json::parse(result.output, nullptr, false);
}

CControllerTest::Json CControllerTest::Try(const std::string& command) const {
  const CCommandResult result =
      RunCommand(CONTROLLER + " " + command + " --json --data " + m_Folder + " 2>/dev/null");
  Json answer = Json::parse(result.output, nullptr, false);
  return result.status == 0 && answer.is_object() ? answer : Json();
}

CControllerTest::Cameras CControllerTest::Status() const {
  const Json answer = Try("status");
  return answer.is_object() ? ByName(answer) : Cameras();
}

CControllerTest::Json CControllerTest::Camera(const std::string& name) const {
  const Cameras cameras = Status();
  return cameras.contains(name) ? cameras.at(name) : Json::object();
}

bool CControllerTest::AllBecome(size_t count, const std::function<bool(const Json& camera)>& good) const {
  return Eventually(PATIENCE, [&] {
    const Cameras cameras = Status();
    return cameras.size() == count &&
           std::ranges::all_of(cameras, [&](const auto& each) { return good(each.second); });
  });
}
