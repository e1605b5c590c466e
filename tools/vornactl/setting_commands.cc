// SPDX-License-Identifier: MIT
// pause, resume, priority, cpu-log and cpu-gate. The daemon keeps these in memory only, which its
// users should hear when they set one.
#include "commands.h"
#include "daemon.h"
#include "exit_status.h"
#include "terminal.h"
#include "words.h"

namespace vornactl {
namespace {

// What an on or off does and how long it lasts.
int ReportChange(const std::string& subject, int result, const std::string& text) {
  const int status = Report(subject, result);
  if (status == kDone) Say(text);
  return status;
}

}  // namespace

int Report(const std::string& subject, int result) {
  if (result == 0) return kDone;
  const Words words = ResultWords(result);
  Complain(subject + ": refused: " + WithNumber(words, result), words.advice);
  return kRefused;
}

int RunPause(const Options&) {
  return ReportChange("pause", Daemon(Daemon::Activation::kAllowed).Pause(),
                      "paused: until 'vornactl resume', or until the daemon ends, which forgets "
                      "this; it does not end by itself while it is paused");
}

int RunResume(const Options&) {
  return ReportChange("resume", Daemon(Daemon::Activation::kAllowed).Resume(), "resumed");
}

int RunPriority(const Options& options) {
  const std::string nice = std::to_string(options.nice);
  return ReportChange("priority " + nice,
                      Daemon(Daemon::Activation::kAllowed).SetPriority(options.nice),
                      "nice value " + nice +
                          ": for what is compiled from now on, until the daemon ends, which "
                          "forgets this and starts with 19");
}

int RunCpuLog(const Options& options) {
  return ReportChange(
      "cpu-log", Daemon(Daemon::Activation::kAllowed).EnableCpuLog(options.on),
      options.on ? "CPU log on: the daemon stays alive for it; until 'vornactl cpu-log off', or "
                   "until the daemon is ended, which forgets this"
                 : "CPU log off");
}

int RunCpuGate(const Options& options) {
  return ReportChange(
      "cpu-gate", Daemon(Daemon::Activation::kAllowed).EnableCpuGate(options.on),
      options.on ? "CPU gate on: the queue waits while the CPU is more than 50 % busy"
                 : "CPU gate off: the queue is compiled however busy the CPU is; until the daemon "
                   "ends, which forgets this");
}

}  // namespace vornactl
