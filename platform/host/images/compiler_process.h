// SPDX-License-Identifier: MIT
// One compiler process, from its start to its typed end. Belongs to the thread that made it, which
// must outlive it: the kernel kills the process with that thread, so that no compiler outlives its
// daemon. The destructor ends a process that still runs.
#ifndef PLATFORM_HOST_IMAGES_COMPILER_PROCESS_H
#define PLATFORM_HOST_IMAGES_COMPILER_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "base/unique_fd.h"

namespace host {

class Confinement;

class CompilerProcess {
 public:
  struct Command {
    std::string executable;
    std::vector<std::string> arguments;  // with [0], the name that the process shows
    std::vector<std::string> environment;
    bool idle_classes = false;                 // runs only when nobody else wants the processor
    const Confinement* confinement = nullptr;  // must outlive the start
  };

  struct Exited {
    int code;
  };
  struct Signaled {
    int signal;
  };
  struct NotStarted {
    int error;
    const char* step;
  };
  // Ended by this library, for it made no progress.
  struct Abandoned {
    const char* reason;
  };
  using Result = std::variant<Exited, Signaled, NotStarted, Abandoned>;

  explicit CompilerProcess(const Command& command);
  ~CompilerProcess();
  CompilerProcess(const CompilerProcess&) = delete;
  CompilerProcess& operator=(const CompilerProcess&) = delete;

  // Readable once the process has ended; -1 if it was not started.
  int end_fd() const { return pidfd_.get(); }
  // Readable while there is output; -1 once all has been read.
  int output_fd() const { return output_pipe_.get(); }

  void ReadOutput();
  // The last few kilobytes of standard output and standard error.
  const std::string& output() const { return output_; }

  // The result once the process has ended; ends it if it hangs.
  std::optional<Result> Poll();
  // Waits for the end.
  Result Wait();

 private:
  void Start(const Command& command);
  void WatchProgress();
  void Abandon(const char* reason);
  void Reap();

  pid_t pid_ = -1;
  UniqueFd pidfd_;
  UniqueFd output_pipe_;
  std::string output_;
  std::optional<Result> result_;
  const char* abandoned_ = nullptr;

  using Clock = std::chrono::steady_clock;
  Clock::time_point last_look_;
  Clock::time_point last_progress_;
  unsigned long long cpu_ticks_ = 0;
};

}  // namespace host

#endif
