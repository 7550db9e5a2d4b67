// The commands that ask a running controller. Thin: each makes a request of its options (see operations.h) and
// prints the answer.
#pragma once

#include "controller/core/options.h"

namespace CLI {
class App;
}

// Adds them to the command line. Once one is parsed, ECommand::Ask is chosen and options->Request is its
// request.
void AddClientCommands(CLI::App* app, COptions* options);

// The answer of the controller that runs this site; one with "ok" false when there is none.
nlohmann::json Ask(const std::string& siteFile, const nlohmann::json& request);

int AskCommand(const COptions& options);  // the program's exit code
