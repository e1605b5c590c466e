// SPDX-License-Identifier: MIT
#include "server/vorna_interface/cpu_load.h"

#include <unistd.h>

#include <string>

#include "common/log.h"
#include "platform/cpu_boost.h"
#include "server/globals/globals.h"

namespace {

constexpr int kProcessRequest = 7;
enum Action { kStart = 1, kEnd = 2 };
enum Group { kBackground = 1, kRunning = 2 };

// A failed request is not worth a line: the daemon works the same in any group.
void request_boost(Action action, Group group) {
  const CpuBoostRequest request = {kProcessRequest, action, group, 0, 0};
  static_cast<void>(cpu_boost_pid_request(getpid(), &request));
}

}  // namespace

bool is_cpu_utilization_high() {
  if (!is_cpu_usage_monitoring_enabled) return false;
  const double utilization = perf_monitor->get_cpu_utilization();
  if (utilization > kMaxCpuUtilization) {
    LOGE("CPU Utilization is too high (%lf), Max: %f", utilization, kMaxCpuUtilization);
    return true;
  }
  const std::string text = "Recent CPU Utilization: " + std::to_string(utilization) +
                           ", Max: " + std::to_string(kMaxCpuUtilization);
  if (is_cpu_usage_logging_enabled) {
    LOGI("%s", text.c_str());
  } else {
    LOGD("%s", text.c_str());
  }
  return false;
}

void start_boost_by_pid() {
  request_boost(kStart, kBackground);
  LOGD("finish boosted to cgroup background");
}

// The text is that of the start: operators know the pair of lines like this.
void end_boost_by_pid() {
  request_boost(kEnd, kBackground);
  LOGD("finish boosted to cgroup background");
}

void start_boost_to_running_by_pid() {
  request_boost(kStart, kRunning);
  LOGD("finish boosted to cgroup running");
}

void end_boost_from_running_by_pid() {
  request_boost(kEnd, kRunning);
  LOGD("finish boosted to cgroup background");
}
