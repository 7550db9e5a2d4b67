// The reference controller.
#include "controller/client_commands.h"
#include "controller/commands.h"
#include "controller/demonstration.h"
#include "controller/log.h"
#include "controller/password.h"
#include "controller/stop_signal.h"

#include <sys/resource.h>

#include <algorithm>

namespace {

int RunChosen(const COptions& options) {
  switch (options.Command) {
    case ECommand::Run:
      return RunCommand(options);
    case ECommand::Discover:
      return DiscoverCommand(options);
    case ECommand::Components:
      return ComponentsCommand(options);
    case ECommand::Show:
      return ShowCommand(options);
    case ECommand::Ask:
      return AskCommand(options);
    case ECommand::Demonstrate:
      return DemonstrateCommand(options);
    case ECommand::None:
      break;
  }
  return 2;
}

// A site of 64 cameras that stream takes more than the 1024 that a shell usually allows.
void AllowManyDescriptors() {
  constexpr rlim_t WANTED = 8192;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= WANTED) return;
  limit.rlim_cur = std::min(WANTED, limit.rlim_max);
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
  InstallStopSignals();
  AllowManyDescriptors();
  COptions options;
  std::string text;
  switch (ParseOptions(argc, argv, &options, &text)) {
    case EParse::Done:
      WriteResult(text);
      return 0;
    case EParse::Wrong:
      WriteProblem(text);
      return 2;
    case EParse::Go:
      break;
  }
  if (!options.User.empty() && !AskPassword(options.User, &options.Password, &text)) {
    WriteProblem(text);
    return 2;
  }
  const int code = RunChosen(options);
  CloseLog();
  return code;
}
