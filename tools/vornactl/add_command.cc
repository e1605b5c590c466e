// SPDX-License-Identifier: MIT
// add, also for packages with stale images, and the wait until packages have left the queue.
#include <algorithm>
#include <chrono>
#include <set>

#include "base/failure.h"
#include "commands.h"
#include "daemon.h"
#include "error.h"
#include "package_facts.h"
#include "stale_images.h"
#include "terminal.h"
#include "words.h"

namespace vornactl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kLookMs = 1000;
// A daemon that is being restarted comes back in this time.
constexpr std::chrono::seconds kPatienceWithoutDaemon(30);

// Waits for packages that are queued. A package that the daemon drops raises no signal, so that it
// is asked for each; a package that has left the queue is not asked for any more, and the daemon
// may end when it has nothing else to do.
class QueueWait {
 public:
  explicit QueueWait(Daemon* daemon) : daemon_(daemon) {
    daemon_->OnCompileDone(&loop_,
                           [this](const std::string& package) { worked_on_.insert(package); });
  }

  void Expect(const std::string& package) { queued_.push_back(package); }

  int Run() {
    daemon_->StartNoMore();
    if (!queued_.empty() && daemon_->Status().is_paused) {
      Note("the daemon is paused: nothing leaves the queue before 'vornactl resume'");
    }
    loop_.Every(kLookMs, [this] { Look(); });
    if (!queued_.empty()) loop_.Run();
    line_.Clear();
    if (queued_.empty()) return status_;
    Note("interrupted: still queued: " + Count(queued_.size(), "package") +
         "; 'vornactl remove' takes a package out");
    return loop_.ExitStatus();
  }

 private:
  void Look() {
    try {
      const auto has_left = [this](const std::string& package) {
        if (daemon_->IsQueued(package)) return false;
        line_.Clear();
        ReportOutcome(package);
        return true;
      };
      queued_.erase(std::remove_if(queued_.begin(), queued_.end(), has_left), queued_.end());
      absent_since_.reset();
      if (queued_.empty()) return loop_.Quit();
      if (line_.is_shown()) ShowProgress(daemon_->Status());
    } catch (const NotRunning&) {
      WaitForReturn();
    }
  }

  void ShowProgress(const DaemonStatus& status) {
    line_.Show(Count(queued_.size(), "package") + " queued, " + Elapsed(Clock::now() - begin_) +
               ": " + (status.is_paused ? "paused" : WorkerWords(status.worker).text) + ", " +
               status.front);
  }

  void WaitForReturn() {
    if (!absent_since_) absent_since_ = Clock::now();
    line_.Show("the daemon has ended; waiting for its return");
    if (Clock::now() - *absent_since_ < kPatienceWithoutDaemon) return;
    line_.Clear();
    throw NotRunning(kUnreachable,
                     "the daemon has ended; still queued: " + Count(queued_.size(), "package"),
                     "'vornactl status --activate' starts it, and it goes on");
  }

  void ReportOutcome(const std::string& package) {
    const PackageFacts facts = FactsOf(package);
    if (worked_on_.count(package) != 0 && IsCompiled(facts)) return Say(package + ": compiled");
    const auto reason = ReasonToSkip(facts);
    const char* unknown = worked_on_.count(package) != 0
                              ? "no native images could be made; the daemon's log names each cause"
                              : "somebody took it out of the queue, or the daemon's log says why";
    Complain(package + ": not compiled: " + (reason ? reason->text : unknown));
    status_ = kNotDone;
  }

  Daemon* daemon_;
  EventLoop loop_;
  ProgressLine line_;
  Clock::time_point begin_ = Clock::now();
  std::optional<Clock::time_point> absent_since_;
  std::vector<std::string> queued_;
  std::set<std::string> worked_on_;
  int status_ = kDone;
};

// A package that cannot be judged keeps what it has: a compile would fail for the same reason.
std::vector<std::string> FindStalePackages() {
  std::vector<std::string> stale;
  for (const std::string& id : InstalledPackages()) {
    const PackageFacts facts = FactsOf(id);
    if (!facts.is_target() || !facts.is_read_write) continue;
    try {
      if (const auto why = WhyStale(facts)) {
        Note(id + ": " + *why);
        stale.push_back(id);
      }
    } catch (const host::Failure& failure) {
      Note(id + ": passed over: " + failure.what());
    }
  }
  return stale;
}

int Add(const Daemon& daemon, const std::string& package) {
  const int status = Report(package, daemon.Add(package));
  if (status != kDone) return status;
  Say(package + ": queued");
  if (const auto reason = ReasonToSkip(FactsOf(package))) {
    Note(package + ": the daemon will pass it over: " + reason->text);
  }
  return status;
}

}  // namespace

int RunAdd(const Options& options) {
  const std::vector<std::string> packages = options.stale ? FindStalePackages() : options.packages;
  if (packages.empty()) {
    Say("every package that asks to be compiled has native images that fit");
    return kDone;
  }
  Daemon daemon(Daemon::Activation::kAllowed);
  std::optional<QueueWait> wait;
  if (options.wait) wait.emplace(&daemon);
  int status = kDone;
  for (const std::string& package : packages) {
    const int own_status = Add(daemon, package);
    if (own_status == kDone && wait) wait->Expect(package);
    if (status == kDone) status = own_status;
  }
  const int wait_status = wait ? wait->Run() : kDone;
  return status == kDone ? wait_status : status;
}

}  // namespace vornactl
