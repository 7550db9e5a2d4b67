// The reference controller.
#include "controller/core/log.h"
#include "controller/core/stop_signal.h"
#include "controller/terminal/client_commands.h"
#include "controller/terminal/commands.h"
#include "controller/terminal/password.h"

#include <sys/random.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>

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

// The driver draws call identifiers and nonces with rand(); a camera may still know those of the run before.
void SeedRandom() {
  unsigned seed = 0;
  if (getrandom(&seed, sizeof seed, 0) == sizeof seed) srand(seed);
}

int Main(int argc, char** argv) {
  InstallStopSignals();
  AllowManyDescriptors();
  SeedRandom();
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

}  // namespace

// The libraries throw, above all when there is no memory left.
int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "controller: %s\n", error.what());
    return 1;
  }
}
