// SPDX-License-Identifier: MIT
// watch: what happens in the daemon, over its ends and returns, until interrupted.
#include <chrono>

#include "commands.h"
#include "common/vorna_utils/aot_queue.h"
#include "daemon.h"
#include "error.h"
#include "server/thread_manager/thread_statuses.h"
#include "terminal.h"
#include "watch_screen.h"
#include "words.h"

namespace vornactl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kLookMs = 1000;

// Each call puts the daemon's end off, and a daemon with nothing to do should end: it is asked
// while it is busy, which keeps it alive by itself, and when its queue file shows that something
// changed.
class Watch {
 public:
  explicit Watch(bool as_json) : daemon_(Daemon::Activation::kNever), screen_(as_json) {}

  int Run() {
    daemon_.OnCompileDone(&loop_, [this](const std::string& package) { ShowDone(package); });
    daemon_.OnPresence(&loop_, [this](bool is_running) { ShowPresence(is_running); });
    loop_.Every(kLookMs, [this] {
      if (IsBusy()) Look();
      Draw();
    });
    loop_.Run();
    return kDone;
  }

 private:
  bool IsBusy() const {
    const DaemonStatus& status = report_.status;
    return report_.process &&
           (status.worker != THREAD_STATUS_IDLE || status.queue_length > 0 || status.is_paused);
  }

  // Anew with each daemon: the first one makes the directory.
  void WatchQueueFile() {
    const GObjectPtr<GFile> file(g_file_new_for_path(kQueueFile));
    queue_file_.reset(g_file_monitor_file(file.get(), G_FILE_MONITOR_NONE, nullptr, nullptr));
    if (!queue_file_) return;
    g_signal_connect(queue_file_.get(), "changed",
                     G_CALLBACK(+[](GFileMonitor*, GFile*, GFile*, GFileMonitorEvent, Watch* self) {
                       self->loop_.Guard([self] { self->Look(); });
                     }),
                     this);
  }

  void ShowPresence(bool is_running) {
    report_ = {};
    is_known_ = false;
    if (is_running) {
      WatchQueueFile();
      report_.process = daemon_.FindProcess();
    }
    screen_.Show({report_.process
                      ? "the daemon runs (process " + std::to_string(*report_.process) + ")"
                      : "the daemon does not run",
                  {{"event", "daemon"}, {"running", report_.process.has_value()}}});
    Look();
    Draw();
  }

  void ShowDone(const std::string& package) {
    const bool is_compiled = IsCompiled(FactsOf(package));
    screen_.Show(
        {package + (is_compiled ? ": compiled" : ": not compiled, the daemon's log says why"),
         {{"event", "finished"}, {"package", package}, {"compiled", is_compiled}}});
    Look();
    Draw();
  }

  void Look() {
    if (!report_.process) return;
    try {
      const DaemonStatus status = daemon_.Status();
      if (is_known_ && status == report_.status) return;
      if (PackageInWork(status) != PackageInWork(report_.status)) in_work_since_ = Clock::now();
      report_.status = status;
      is_known_ = true;
      ShowState();
    } catch (const NotRunning&) {
      // Its end will be announced.
    }
  }

  void ShowState() {
    const DaemonStatus& status = report_.status;
    nlohmann::ordered_json object = {{"event", "state"}};
    object.update(ToJson(report_));
    const std::string in_work = PackageInWork(status);
    screen_.Show({std::string(status.is_paused ? "paused, " : "") +
                      WorkerWords(status.worker).text + (in_work.empty() ? "" : ": " + in_work) +
                      "; queue: " + std::to_string(status.queue_length),
                  object});
  }

  void Draw() {
    const bool is_working = !PackageInWork(report_.status).empty();
    screen_.Draw(report_, is_working ? Elapsed(Clock::now() - in_work_since_) : "");
  }

  EventLoop loop_;
  Daemon daemon_;
  WatchScreen screen_;
  GObjectPtr<GFileMonitor> queue_file_;
  DaemonReport report_;
  bool is_known_ = false;
  Clock::time_point in_work_since_ = Clock::now();
};

}  // namespace

int RunWatch(const Options& options) {
  return Watch(options.json).Run();
}

}  // namespace vornactl
