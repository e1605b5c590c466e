// SPDX-License-Identifier: MIT
#include "images/child_start.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <linux/ioprio.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>

#include "images/confinement.h"

namespace host {
namespace {

[[noreturn]] void Fail(const ChildStart& start, int failure_fd, ChildStep step) {
  const ChildFailure failure = {errno, step};
  if (write(failure_fd, &failure, sizeof failure) < 0) _exit(126);
  (void)start;
  _exit(127);
}

// Standard streams, and above them only the descriptor for a failure, which exec closes.
bool ArrangeDescriptors(const ChildStart& start, int* failure_fd) {
  constexpr int kAboveStandardStreams = 10;
  const int input = fcntl(start.input, F_DUPFD, kAboveStandardStreams);
  const int output = fcntl(start.output, F_DUPFD, kAboveStandardStreams);
  *failure_fd = fcntl(start.failure, F_DUPFD_CLOEXEC, kAboveStandardStreams);
  if (input < 0 || output < 0 || *failure_fd < 0 || dup2(input, STDIN_FILENO) < 0 ||
      dup2(output, STDOUT_FILENO) < 0 || dup2(output, STDERR_FILENO) < 0) {
    return false;
  }
  return syscall(SYS_close_range, STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC) == 0;
}

// Dispositions that exec would keep (ignored ones), and the mask.
void ResetSignals() {
  struct sigaction standard = {};
  standard.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) sigaction(signal, &standard, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// The kernel counts a denial as no reason to stop: the compile is then merely less discreet.
void EnterIdleClasses() {
  const struct sched_param parameter = {0};
  sched_setscheduler(0, SCHED_IDLE, &parameter);
  syscall(SYS_ioprio_set, IOPRIO_WHO_PROCESS, 0, IOPRIO_PRIO_VALUE(IOPRIO_CLASS_IDLE, 0));
}

}  // namespace

void RunChild(const ChildStart& start) {
  int failure_fd = start.failure;
  if (!ArrangeDescriptors(start, &failure_fd)) Fail(start, failure_fd, ChildStep::kDescriptors);
  ResetSignals();
  if (start.idle_classes) EnterIdleClasses();
  if (start.confinement != nullptr) {
    ChildStep step = ChildStep::kLimits;
    if (!start.confinement->Enter(&step)) Fail(start, failure_fd, step);
  }
  // After the change of user, which would clear it; and a parent that went before is noticed.
  if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) Fail(start, failure_fd, ChildStep::kParentDeath);
  if (getppid() != start.parent) _exit(127);
  execve(start.executable, start.arguments, start.environment);
  Fail(start, failure_fd, ChildStep::kExec);
}

const char* StepName(ChildStep step) {
  switch (step) {
    case ChildStep::kParentDeath:
      return "prctl";
    case ChildStep::kDescriptors:
      return "descriptors";
    case ChildStep::kSignals:
      return "signals";
    case ChildStep::kPriority:
      return "priority";
    case ChildStep::kLimits:
      return "limits";
    case ChildStep::kUser:
      return "change of user";
    case ChildStep::kNoNewPrivileges:
      return "no new privileges";
    case ChildStep::kLandlock:
      return "landlock";
    case ChildStep::kSystemCalls:
      return "system call filter";
    case ChildStep::kExec:
      return "exec";
  }
  return "start";
}

}  // namespace host
