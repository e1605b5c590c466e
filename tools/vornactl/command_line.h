// SPDX-License-Identifier: MIT
// The command line: every command with its options, their checks and their help. One thread.
#ifndef TOOLS_VORNACTL_COMMAND_LINE_H
#define TOOLS_VORNACTL_COMMAND_LINE_H

#include <variant>

#include "commands.h"

namespace vornactl {

// What is to be done, or the exit status when that was all: help was shown, or the usage is wrong.
std::variant<Options, int> ParseCommandLine(int argc, char** argv);

}  // namespace vornactl

#endif
