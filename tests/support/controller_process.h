// The controller as a test uses it: the real program in the background, and its commands from outside.
#pragma once

#include "tests/support/camsim_process.h"
#include "tests/support/eventually.h"
#include "tests/support/places.h"

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

inline const std::string CONTROLLER = std::string(TEST_BIN_DIR) + "/controller";

std::string Text(const std::string& path);  // the whole file; empty when there is none

// A controller that runs until it is ended.
class CControllerProcess {
 public:
  // Arguments with blanks in between; what it prints goes into the file `output`.
  explicit CControllerProcess(const std::string& arguments, const std::string& output = "/dev/null");
  ~CControllerProcess();
  CControllerProcess(const CControllerProcess&) = delete;
  CControllerProcess& operator=(const CControllerProcess&) = delete;

  // Seconds from the signal to the end; its exit status in `status`.
  double End(int signal, int* status = nullptr);

 private:
  pid_t m_iPid;
};

// A test with a folder of its own, which is gone afterwards.
class CFolderTest : public testing::Test {
 protected:
  CFolderTest();
  ~CFolderTest() override;
  const std::string m_Folder;
};

// A site in such a folder, the controller that runs it, and commands about it.
class CControllerTest : public CFolderTest {
 protected:
  using Json = nlohmann::json;
  using Cameras = std::map<std::string, Json>;  // as status and summary describe them, by name

  CControllerTest();  // the cameras' password in the environment

  // Runs the site on the loopback interface in the background, and ends that, which must end well. End()
  // returns the summary.
  void Start(const std::string& arguments);
  Cameras End();

  // Both outputs and the status of a command. One that is refused because the camera is being loaded, as when a
  // busy machine let a stream run dry, is given again.
  CCommandResult Ask(const std::string& command) const;
  // The answer to a command, which must be a good one; likewise when a busy camera did not confirm in time.
  Json Good(const std::string& command) const;
  // Its answer when it is a good one, null otherwise.
  Json Try(const std::string& command) const;
  bool Does(const std::string& command) const { return !Try(command).is_null(); }

  // What the cameras do now; none when there is no answer.
  Cameras Status() const;
  Json Camera(const std::string& name) const;  // an object without fields when there is none
  // Waits until there are that many cameras and all of them are as `good` wants them.
  bool AllBecome(size_t count, const std::function<bool(const Json& camera)>& good) const;

 private:
  std::unique_ptr<CControllerProcess> m_pController;
};
