// SPDX-License-Identifier: MIT
#include "status_report.h"

#include "base/text.h"
#include "server/thread_manager/thread_statuses.h"
#include "server/vorna_interface/package_status.h"
#include "terminal.h"
#include "words.h"

namespace vornactl {
namespace {

using nlohmann::ordered_json;

constexpr int kLabelWidth = 12;

std::string Line(const char* label, const std::string& text) {
  return host::Format("%-*s", kLabelWidth, label) + text;
}

std::string YesOrNo(const std::optional<bool>& answer) {
  if (!answer) return Coloured(Colour::kWarning, "unknown");
  return *answer ? Coloured(Colour::kGood, "yes") : "no";
}

ordered_json OrNull(const std::optional<bool>& answer) {
  return answer ? ordered_json(*answer) : ordered_json(nullptr);
}

ordered_json OrNull(const std::string& text) {
  return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

std::string QueueText(const DaemonReport& daemon) {
  const DaemonStatus& status = daemon.status;
  if (!daemon.is_queue_known)
    return Coloured(Colour::kWarning, "unknown") + ", its file cannot be read";
  if (status.queue_length == 0) return "empty";
  return Count(status.queue_length, "package") + ", " + host::Visible(status.front) + " in front";
}

// Of a package that is queued.
Reason WhatItWaitsFor(const std::string& id, const DaemonReport& daemon) {
  const DaemonStatus& status = daemon.status;
  if (!daemon.process) {
    return {"daemon-not-running",
            "it is queued, and the daemon does not run: it goes on when it is "
            "started ('vornactl status --activate')"};
  }
  if (status.is_paused) {
    return {"paused", "it is queued, and the daemon is paused ('vornactl resume')"};
  }
  switch (status.worker) {
    case THREAD_STATUS_WAITING_FOR_CPU:
      return {"waiting-for-cpu",
              "it is queued, and the CPU is more than 50 % busy "
              "('vornactl cpu-gate off')"};
    case THREAD_STATUS_STORAGE_INSUFFICIENT:
      return {"storage", "it is queued, and there is too little storage"};
    case THREAD_STATUS_SINGLE_PACKAGE_AOT:
      return {"compiling-at-once", "it is queued, and a client has one package compiled at once"};
    default:
      break;
  }
  if (status.front != id) {
    return {"queued", "it waits in the queue, with " + status.front + " in front"};
  }
  return status.worker == THREAD_STATUS_RUNNING
             ? Reason{"in-work", "it is being compiled now"}
             : Reason{"next", "it is the next to be compiled, in 5 seconds at most"};
}

}  // namespace

std::string PackageInWork(const DaemonStatus& status) {
  return status.worker == THREAD_STATUS_RUNNING ? status.front : std::string();
}

std::vector<Reason> ReasonsOf(const PackageReport& package, const DaemonReport& daemon) {
  std::vector<Reason> reasons;
  if (const auto skip = ReasonToSkip(package.facts)) reasons.push_back(*skip);
  if (package.staleness) {
    reasons.push_back({"stale", "an image no longer fits, and is not used: " + *package.staleness +
                                    " ('vornactl add --stale')"});
  }
  if (package.is_queued.value_or(false)) {
    reasons.push_back(WhatItWaitsFor(package.facts.id, daemon));
  } else if (reasons.empty() && package.is_compiled == false) {
    reasons.push_back({"not-queued", "nobody has queued it ('vornactl add " + package.facts.id +
                                         "'), or its last compile failed: the daemon's log says "
                                         "why"});
  }
  return reasons;
}

ordered_json ToJson(const DaemonReport& daemon) {
  const DaemonStatus& status = daemon.status;
  ordered_json value = {{"running", daemon.process.has_value()}};
  if (daemon.process) {
    value["pid"] = *daemon.process;
    value["paused"] = status.is_paused;
    value["worker"] = {{"number", status.worker},
                       {"state", WorkerWords(status.worker).name},
                       {"text", WorkerWords(status.worker).text}};
    value["compiling"] = OrNull(PackageInWork(status));
  }
  value["front"] = OrNull(status.front);
  value["queue_length"] =
      daemon.is_queue_known ? ordered_json(status.queue_length) : ordered_json(nullptr);
  return value;
}

ordered_json ToJson(const PackageReport& package, const DaemonReport& daemon) {
  const PackageFacts& facts = package.facts;
  ordered_json value = {{"id", facts.id},
                        {"installed", facts.is_installed()},
                        {"root", OrNull(facts.root)},
                        {"read_only", facts.is_installed() && !facts.is_read_write},
                        {"target", facts.is_target()},
                        {"compiled", OrNull(package.is_compiled)},
                        {"queued", OrNull(package.is_queued)},
                        {"high_launch_priority", OrNull(package.is_high_priority)},
                        {"result", nullptr}};
  if (package.answer) {
    const int result = package.answer->result;
    value["result"] = {
        {"number", result}, {"name", ResultWords(result).name}, {"text", ResultWords(result).text}};
  }
  value["reasons"] = ordered_json::array();
  for (const Reason& reason : ReasonsOf(package, daemon)) {
    value["reasons"].push_back({{"code", reason.code}, {"text", reason.text}});
  }
  return value;
}

std::vector<std::string> ToLines(const DaemonReport& daemon) {
  const DaemonStatus& status = daemon.status;
  if (!daemon.process) {
    return {Line("daemon", Coloured(Colour::kWarning, "does not run") +
                               "; what is asked of it starts it, as does 'vornactl status "
                               "--activate'"),
            Line("queue", QueueText(daemon))};
  }
  const Words worker = WorkerWords(status.worker);
  const std::string in_work = PackageInWork(status);
  std::vector<std::string> lines = {
      Line("daemon",
           Coloured(Colour::kGood, "runs") + " (process " + std::to_string(*daemon.process) + ")"),
      Line("paused", status.is_paused ? Coloured(Colour::kWarning, "yes") : "no"),
      Line("worker", WithNumber(worker, status.worker) +
                         (*worker.advice != '\0' ? std::string("; ") + worker.advice : ""))};
  if (!in_work.empty()) lines.push_back(Line("compiling", host::Visible(in_work)));
  lines.push_back(Line("queue", QueueText(daemon)));
  return lines;
}

std::vector<std::string> ToLines(const PackageReport& package, const DaemonReport& daemon) {
  const PackageFacts& facts = package.facts;
  const std::string where = facts.is_installed() ? ", " + host::Visible(facts.root) +
                                                       (facts.is_read_write ? "" : " (read-only)")
                                                 : "";
  std::vector<std::string> lines = {
      Coloured(Colour::kBold, facts.id),
      Line("  installed", YesOrNo(facts.is_installed()) + where),
      Line("  target", YesOrNo(facts.is_target())),
      Line("  compiled", YesOrNo(package.is_compiled)),
      Line("  queued", YesOrNo(package.is_queued)),
      Line("  priority", package.is_high_priority == true ? "high at launch"
                                                          : YesOrNo(package.is_high_priority))};
  for (const Reason& reason : ReasonsOf(package, daemon)) {
    lines.push_back(Line("  because", host::Visible(reason.text)));
  }
  return lines;
}

std::string Dump(const ordered_json& value) {
  return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace vornactl
