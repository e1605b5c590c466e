// SPDX-License-Identifier: MIT
// compile: packages at once, one after another, each until the daemon has answered.
#include "commands.h"
#include "common/vorna_error.h"
#include "compile_progress.h"
#include "daemon.h"
#include "error.h"
#include "server/thread_manager/thread_statuses.h"
#include "terminal.h"
#include "words.h"

namespace vornactl {
namespace {

constexpr unsigned kProgressMs = 500;

const char* StateText(const Daemon& daemon) {
  try {
    const int worker = daemon.Status().worker;
    if (worker == THREAD_STATUS_SINGLE_PACKAGE_AOT) return "compiling";
    return worker == THREAD_STATUS_RUNNING ? "the queue's compile is put off" : "waiting";
  } catch (const Error&) {
    return "the daemon does not tell its state";  // the compile's own answer will say why
  }
}

// The exit status for the daemon's answer.
int ReportCompile(const CompileProgress& progress, int result) {
  const PackageFacts& facts = progress.facts();
  if (result != VORNA_ERROR_NONE) return Report(facts.id, result);
  if (const auto reason = facts.is_read_write ? std::nullopt : ReasonToSkip(facts)) {
    Complain(facts.id + ": not compiled: " + reason->text);
    return kNotDone;
  }
  Say(facts.id + ": compiled in " + progress.ElapsedText() + ", " + progress.ImagesText());
  return kDone;
}

void ReportInterruption(const std::vector<std::string>& packages, size_t current) {
  Note("interrupted: the daemon goes on compiling " + packages[current] +
       ", and then with its queue; 'vornactl watch' shows when it is done");
  std::string rest;
  for (size_t i = current + 1; i < packages.size(); ++i) rest += " " + packages[i];
  if (!rest.empty()) Note("not asked for:" + rest);
}

std::optional<int> CompileOne(const Daemon& daemon, const CompileProgress& progress,
                              ProgressLine* line, const CompileProgress** shown, EventLoop* loop) {
  *shown = &progress;
  const std::optional<int> result = daemon.Compile(progress.facts().id, loop);
  *shown = nullptr;
  line->Clear();
  return result;
}

}  // namespace

int RunCompile(const Options& options) {
  const Daemon daemon(Daemon::Activation::kAllowed);
  EventLoop loop;
  ProgressLine line;
  const CompileProgress* shown = nullptr;
  if (line.is_shown()) {
    loop.Every(kProgressMs, [&] {
      if (shown == nullptr) return;
      line.Show(shown->facts().id + ": " + StateText(daemon) + ", " + shown->ElapsedText() + ", " +
                shown->ImagesText());
    });
  }
  int status = kDone;
  for (size_t i = 0; i < options.packages.size(); ++i) {
    const CompileProgress progress(options.packages[i]);
    const std::optional<int> result = CompileOne(daemon, progress, &line, &shown, &loop);
    if (!result) {
      ReportInterruption(options.packages, i);
      return loop.ExitStatus();
    }
    const int own_status = ReportCompile(progress, *result);
    if (status == kDone) status = own_status;
  }
  return status;
}

}  // namespace vornactl
