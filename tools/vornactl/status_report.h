// SPDX-License-Identifier: MIT
// The daemon's state and a package's, as text and as JSON. Pure; any thread.
#ifndef TOOLS_VORNACTL_STATUS_REPORT_H
#define TOOLS_VORNACTL_STATUS_REPORT_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "daemon.h"
#include "package_facts.h"

namespace vornactl {

// Without a process the daemon does not run, and the status tells what the queue file holds.
struct DaemonReport {
  std::optional<uint32_t> process;
  DaemonStatus status;
  bool is_queue_known = true;
};

// Nothing where it cannot be told.
struct PackageReport {
  PackageFacts facts;
  std::optional<PackageStatus> answer;  // the daemon's
  std::optional<bool> is_compiled;
  std::optional<bool> is_queued;
  std::optional<bool> is_high_priority;
  std::optional<std::string> staleness;  // why the launcher would not use an image
};

// What the worker has in hand; empty when it works on nothing, or on what the bus does not tell.
std::string PackageInWork(const DaemonStatus& status);

// Why the package is not compiled, or would be passed over; what it waits for.
std::vector<Reason> ReasonsOf(const PackageReport& package, const DaemonReport& daemon);

nlohmann::ordered_json ToJson(const DaemonReport& daemon);
nlohmann::ordered_json ToJson(const PackageReport& package, const DaemonReport& daemon);
std::vector<std::string> ToLines(const DaemonReport& daemon);
std::vector<std::string> ToLines(const PackageReport& package, const DaemonReport& daemon);

// One line, also for package ids that are no UTF-8.
std::string Dump(const nlohmann::ordered_json& value);

}  // namespace vornactl

#endif
