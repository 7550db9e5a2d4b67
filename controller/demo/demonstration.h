// What ./run shows of the commands: asks a running controller to do things with simulated cameras, as a user
// would, and looks at the simulation's control address whether the cameras did them. Each thing asked for is
// noted at its camera ("note" of operations.h), which shows it on the terminal and in the summary.
#pragma once

#include "controller/core/options.h"

int DemonstrateCommand(const COptions& options);  // the program's exit code: 0 when everything was seen
