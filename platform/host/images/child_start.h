// SPDX-License-Identifier: MIT
// The child's side of starting the compiler: everything between fork and exec. The process has
// other threads, so that this code may only make system calls; whatever it needs is prepared
// before.
#ifndef PLATFORM_HOST_IMAGES_CHILD_START_H
#define PLATFORM_HOST_IMAGES_CHILD_START_H

#include <sys/types.h>

#include <cstdint>

namespace host {

class Confinement;

enum class ChildStep : int32_t {
  kParentDeath,
  kDescriptors,
  kSignals,
  kPriority,
  kLimits,
  kUser,
  kNoNewPrivileges,
  kLandlock,
  kSystemCalls,
  kExec,
};

struct ChildFailure {
  int32_t error;
  ChildStep step;
};

const char* StepName(ChildStep step);

struct ChildStart {
  const char* executable;
  char* const* arguments;
  char* const* environment;
  int input;    // becomes standard input
  int output;   // becomes standard output and standard error
  int failure;  // takes a ChildFailure; closed by a successful exec
  pid_t parent;
  bool idle_classes;
  const Confinement* confinement;  // may be null
};

[[noreturn]] void RunChild(const ChildStart& start);

}  // namespace host

#endif
