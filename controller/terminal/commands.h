// The commands; each returns the program's exit code.
#pragma once

#include "controller/core/options.h"

int RunCommand(const COptions& options);
int DiscoverCommand(const COptions& options);
int ComponentsCommand(const COptions& options);
int ShowCommand(const COptions& options);
