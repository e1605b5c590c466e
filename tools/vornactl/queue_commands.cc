// SPDX-License-Identifier: MIT
// remove and clean.
#include <unistd.h>

#include "commands.h"
#include "daemon.h"
#include "error.h"
#include "terminal.h"

namespace vornactl {
namespace {

// Goes through all packages, whatever becomes of one; the first failure is the exit status.
template <typename Action>
int ForEach(const std::vector<std::string>& packages, const char* done, const Action& action) {
  int status = kDone;
  for (const std::string& package : packages) {
    const int own_status = Report(package, action(package));
    if (own_status == kDone) Say(package + ": " + done);
    if (status == kDone) status = own_status;
  }
  return status;
}

int CleanQueue(bool is_sure) {
  const Daemon daemon(Daemon::Activation::kAllowed);
  const DaemonStatus before = daemon.Status();
  if (before.queue_length == 0) {
    Say("the queue is empty");
    return kDone;
  }
  const std::string packages = Count(before.queue_length, "package");
  if (!is_sure &&
      !Confirm("Empty the queue of " + packages + "? A compile of the queue is ended.")) {
    Complain("nothing is changed");
    return kNotDone;
  }
  const int status = Report("clean", daemon.CleanQueue());
  if (status != kDone) return status;
  Say("the queue is emptied of " + packages);
  if (before.is_paused) Note("this has resumed the daemon; 'vornactl pause' pauses it again");
  return status;
}

}  // namespace

int RunRemove(const Options& options) {
  const Daemon daemon(Daemon::Activation::kAllowed);
  return ForEach(options.packages, "taken out of the queue",
                 [&](const std::string& package) { return daemon.Remove(package); });
}

int RunClean(const Options& options) {
  if (!options.packages.empty()) {
    const Daemon daemon(Daemon::Activation::kAllowed);
    return ForEach(options.packages, "native images removed",
                   [&](const std::string& package) { return daemon.CleanPackage(package); });
  }
  if (!options.yes && isatty(STDIN_FILENO) == 0) {
    throw Error(kWrongUsage, "there is no terminal to ask whether the queue is to be emptied",
                "say 'vornactl clean --yes'");
  }
  return CleanQueue(options.yes);
}

}  // namespace vornactl
