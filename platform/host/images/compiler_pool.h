// SPDX-License-Identifier: MIT
// Runs compilers side by side on one thread, the caller's, which starts them, waits for them and
// tells the watchdog after each that it is alive.
#ifndef PLATFORM_HOST_IMAGES_COMPILER_POOL_H
#define PLATFORM_HOST_IMAGES_COMPILER_POOL_H

#include <cstddef>
#include <functional>
#include <string>

#include "images/compiler_process.h"

namespace host {

struct CompilerTasks {
  size_t count;
  size_t at_once;
  // Called just before the start; what it returns must live until the end of that process.
  std::function<const CompilerProcess::Command&(size_t index)> command;
  // Called after the end. False, or an exception, ends the other processes and the run.
  std::function<bool(size_t index, const CompilerProcess::Result&, const std::string& output)>
      ended;
};

void RunCompilers(const CompilerTasks& tasks);

}  // namespace host

#endif
