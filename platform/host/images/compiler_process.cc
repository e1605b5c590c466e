// SPDX-License-Identifier: MIT
#include "images/compiler_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>

#include "images/child_start.h"
#include "images/process_stat.h"

namespace host {
namespace {

constexpr size_t kOutputTail = 8192;
constexpr std::chrono::seconds kBetweenLooks(2);
// Starved of memory the compiler can lose its workers and wait for them for ever.
constexpr std::chrono::seconds kLongestStandstill(60);
constexpr unsigned long long kLongestCpuSeconds = 600;

// Blocks every signal, so that no handler of this process runs in the child before its exec.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old_mask_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t old_mask_;
};

std::vector<char*> Pointers(const std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  pointers.reserve(strings.size() + 1);
  for (const std::string& text : strings) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

bool OpenPipe(UniqueFd* read_end, UniqueFd* write_end) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  *read_end = UniqueFd(ends[0]);
  *write_end = UniqueFd(ends[1]);
  return true;
}

}  // namespace

CompilerProcess::CompilerProcess(const Command& command)
    : last_look_(Clock::now()), last_progress_(last_look_) {
  Start(command);
}

CompilerProcess::~CompilerProcess() {
  if (pid_ < 0 || result_) return;
  kill(pid_, SIGKILL);
  Reap();
}

void CompilerProcess::Start(const Command& command) {
  UniqueFd output_end;
  UniqueFd failure_pipe;
  UniqueFd failure_end;
  UniqueFd nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  if (!nothing || !OpenPipe(&output_pipe_, &output_end) || !OpenPipe(&failure_pipe, &failure_end)) {
    result_ = NotStarted{errno, "pipe"};
    return;
  }
  fcntl(output_pipe_.get(), F_SETFL, O_NONBLOCK);
  std::vector<char*> arguments = Pointers(command.arguments);
  std::vector<char*> environment = Pointers(command.environment);
  const ChildStart start = {
      command.executable.c_str(), arguments.data(),  environment.data(), nothing.get(),
      output_end.get(),           failure_end.get(), getpid(),           command.idle_classes,
      command.confinement};
  {
    const AllSignalsBlocked blocked;
    pid_ = fork();
    if (pid_ == 0) RunChild(start);
  }
  if (pid_ < 0) {
    result_ = NotStarted{errno, "fork"};
    return;
  }
  failure_end.Reset();
  pidfd_ = UniqueFd(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
  ChildFailure failure;
  // Nothing arrives, and the pipe closes, when the program has been started.
  ssize_t count;
  do {
    count = read(failure_pipe.get(), &failure, sizeof failure);
  } while (count < 0 && errno == EINTR);
  if (count == sizeof failure || !pidfd_) {
    const NotStarted not_started = count == sizeof failure
                                       ? NotStarted{failure.error, StepName(failure.step)}
                                       : NotStarted{errno, "pidfd_open"};
    kill(pid_, SIGKILL);
    Reap();
    result_ = not_started;
    pidfd_.Reset();
    output_pipe_.Reset();
  }
}

void CompilerProcess::ReadOutput() {
  char buffer[4096];
  while (output_pipe_) {
    const ssize_t count = read(output_pipe_.get(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) {
      output_pipe_.Reset();
      return;
    }
    output_.append(buffer, static_cast<size_t>(count));
    if (output_.size() > 2 * kOutputTail) output_.erase(0, output_.size() - kOutputTail);
  }
}

std::optional<CompilerProcess::Result> CompilerProcess::Poll() {
  if (result_) return result_;
  ReadOutput();
  struct pollfd ended = {pidfd_.get(), POLLIN, 0};
  if (poll(&ended, 1, 0) == 1) {
    Reap();
    ReadOutput();  // what it wrote last
    output_pipe_.Reset();
  } else {
    WatchProgress();
  }
  return result_;
}

CompilerProcess::Result CompilerProcess::Wait() {
  while (!Poll()) {
    struct pollfd events[] = {{pidfd_.get(), POLLIN, 0}, {output_pipe_.get(), POLLIN, 0}};
    poll(events, 2, static_cast<int>(std::chrono::milliseconds(kBetweenLooks).count()));
  }
  return *result_;
}

void CompilerProcess::Reap() {
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0) {
    if (errno == EINTR) continue;
    // Somebody else collected it: a program that ignores SIGCHLD, say.
    result_ = NotStarted{errno, "waitpid"};
    return;
  }
  if (abandoned_ != nullptr) {
    result_ = Abandoned{abandoned_};
  } else if (WIFSIGNALED(status)) {
    result_ = Signaled{WTERMSIG(status)};
  } else {
    result_ = Exited{WEXITSTATUS(status)};
  }
}

void CompilerProcess::WatchProgress() {
  const Clock::time_point now = Clock::now();
  if (now - last_look_ < kBetweenLooks) return;
  last_look_ = now;
  const auto ticks = CpuTicksOf(pid_);
  if (!ticks || *ticks != cpu_ticks_) {
    cpu_ticks_ = ticks.value_or(cpu_ticks_);
    last_progress_ = now;
  }
  if (cpu_ticks_ / static_cast<unsigned long long>(sysconf(_SC_CLK_TCK)) >= kLongestCpuSeconds) {
    Abandon("it used more than 10 minutes of processor time");
  } else if (now - last_progress_ >= kLongestStandstill) {
    // One that waits for the processor, or that somebody stopped, does not hang.
    if (AllThreadsSleep(pid_)) {
      Abandon("it stood still for a minute");
    } else {
      last_progress_ = now;
    }
  }
}

void CompilerProcess::Abandon(const char* reason) {
  abandoned_ = reason;
  kill(pid_, SIGKILL);
}

}  // namespace host
