// The reference controller.
#include "controller/client_commands.h"
#include "controller/commands.h"
#include "controller/demonstration.h"
#include "controller/log.h"
#include "controller/password.h"
#include "controller/stop_signal.h"

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

}  // namespace

int main(int argc, char** argv) {
  InstallStopSignals();
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
