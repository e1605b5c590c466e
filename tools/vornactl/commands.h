// SPDX-License-Identifier: MIT
// What the command line asks for, and the functions that do it. Each returns the exit status and
// throws Error for what went wrong before the daemon answered. One thread.
#ifndef TOOLS_VORNACTL_COMMANDS_H
#define TOOLS_VORNACTL_COMMANDS_H

#include <string>
#include <vector>

namespace vornactl {

struct Options {
  int (*run)(const Options&) = nullptr;
  std::vector<std::string> packages;
  bool activate = false;
  bool json = false;
  bool stale = false;
  bool wait = false;
  bool yes = false;
  bool on = false;
  int nice = 0;
};

int RunStatus(const Options& options);
int RunAdd(const Options& options);
int RunRemove(const Options& options);
int RunCompile(const Options& options);
int RunClean(const Options& options);
int RunWatch(const Options& options);
int RunPause(const Options& options);
int RunResume(const Options& options);
int RunPriority(const Options& options);
int RunCpuLog(const Options& options);
int RunCpuGate(const Options& options);

// Complains unless the result is 0; returns the exit status. `subject` is a package or a command.
int Report(const std::string& subject, int result);

}  // namespace vornactl

#endif
