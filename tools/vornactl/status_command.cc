// SPDX-License-Identifier: MIT
// status: what the daemon does, and what is with packages. Asking starts nothing.
#include <algorithm>

#include "base/failure.h"
#include "commands.h"
#include "common/vorna_error.h"
#include "daemon.h"
#include "error.h"
#include "server/vorna_interface/package_status.h"
#include "stale_images.h"
#include "status_report.h"
#include "terminal.h"

namespace vornactl {
namespace {

DaemonReport AskDaemon(const Daemon& daemon, bool activate) {
  try {
    DaemonReport report;
    if (activate) report.status = daemon.Status();
    report.process = daemon.FindProcess();
    if (report.process) report.status = daemon.Status();
    return report;
  } catch (const NotRunning&) {  // it has ended in between
    if (activate) throw;
    return {};
  }
}

void AddQueueOnDisk(DaemonReport* report) {
  const auto queue = QueueOnDisk();
  report->is_queue_known = queue.has_value();
  if (!queue || queue->empty()) return;
  report->status.front = queue->front();
  report->status.queue_length = static_cast<int>(queue->size());
}

PackageReport FromFiles(const std::string& id) {
  PackageReport report;
  report.facts = FactsOf(id);
  const auto queue = QueueOnDisk();
  if (report.facts.metadata) report.is_compiled = IsCompiled(report.facts);
  if (queue) report.is_queued = std::find(queue->begin(), queue->end(), id) != queue->end();
  report.is_high_priority = IsInPriorityList(id);
  return report;
}

PackageReport FromDaemon(const Daemon& daemon, const std::string& id) {
  PackageReport report;
  report.facts = FactsOf(id);
  report.answer = daemon.StatusOf(id);
  if (report.answer->status != PACKAGE_STATUS_UNKNOWN) {
    report.is_compiled = report.answer->status == PACKAGE_STATUS_AOT_COMPILED;
  }
  report.is_queued = daemon.IsQueued(id);
  report.is_high_priority = daemon.IsHighLaunchPriority(id);
  return report;
}

void AddStaleness(PackageReport* report) {
  if (!report->facts.is_target() || report->is_compiled != true) return;
  try {
    report->staleness = WhyStale(report->facts);
  } catch (const host::Failure& failure) {
    report->staleness = failure.what();
  }
}

void Show(const DaemonReport& daemon, const std::vector<PackageReport>& packages, bool as_json) {
  if (as_json) {
    nlohmann::ordered_json value = {{"daemon", ToJson(daemon)}};
    value["packages"] = nlohmann::ordered_json::array();
    for (const PackageReport& package : packages) {
      value["packages"].push_back(ToJson(package, daemon));
    }
    return Say(Dump(value));
  }
  for (const std::string& line : ToLines(daemon)) Say(line);
  for (const PackageReport& package : packages) {
    Say("");
    for (const std::string& line : ToLines(package, daemon)) Say(line);
  }
}

}  // namespace

int RunStatus(const Options& options) {
  const Daemon daemon(options.activate ? Daemon::Activation::kAllowed : Daemon::Activation::kNever);
  DaemonReport report = AskDaemon(daemon, options.activate);
  if (!report.process) AddQueueOnDisk(&report);
  int status = report.process ? kDone : kUnreachable;
  std::vector<PackageReport> packages;
  for (const std::string& id : options.packages) {
    packages.push_back(report.process ? FromDaemon(daemon, id) : FromFiles(id));
    AddStaleness(&packages.back());
    const auto& answer = packages.back().answer;
    if (answer && answer->result != VORNA_ERROR_NONE) status = kRefused;
  }
  Show(report, packages, options.json);
  return status;
}

}  // namespace vornactl
