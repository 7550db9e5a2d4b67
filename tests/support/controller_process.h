// The controller as a test uses it: the real program in the background.
#pragma once

#include "tests/support/eventually.h"

#include <sys/types.h>

#include <string>
#include <vector>

inline const std::string kController = TEST_BIN_DIR "/controller";

std::string Text(const std::string& path);  // the whole file; empty when there is none

// A controller that runs until it is ended.
class CControllerProcess {
 public:
  explicit CControllerProcess(const std::vector<std::string>& arguments);
  ~CControllerProcess();
  CControllerProcess(const CControllerProcess&) = delete;
  CControllerProcess& operator=(const CControllerProcess&) = delete;

  // Seconds from the signal to the end; its exit status in `status`.
  double End(int signal, int* status = nullptr);

 private:
  pid_t m_iPid;
};
