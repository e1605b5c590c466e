// SPDX-License-Identifier: MIT
#include "common/performance_monitor/linux_perf_monitor.h"

#include <cerrno>
#include <ctime>
#include <fstream>
#include <string>

namespace {

constexpr timespec kSamplingInterval = {3, 0};

void sleep_for_interval() {
  timespec remaining = kSamplingInterval;
  while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
  }
}

}  // namespace

// The thread is started here and not by its initialiser: the members after it are then initialised
// before it runs.
LinuxPerfMonitor::LinuxPerfMonitor() {
  monitor_thread_ = std::thread(&LinuxPerfMonitor::monitor, this);
  const CpuTimes baseline = parse_proc_stat_cpu_line();
  prev_idle_ = baseline.idle_total();
  prev_busy_ = baseline.busy_total();
}

LinuxPerfMonitor::~LinuxPerfMonitor() {
  stop_requested_.exchange(true);
  monitor_thread_.join();
}

CpuTimes LinuxPerfMonitor::parse_proc_stat_cpu_line() {
  std::ifstream stat("/proc/stat");
  std::string label;
  CpuTimes times;
  stat >> label >> times.user >> times.nice >> times.system >> times.idle >> times.iowait >>
      times.irq >> times.softirq >> times.steal >> times.guest >> times.guest_nice;
  return times;
}

void LinuxPerfMonitor::monitor() {
  while (!stop_requested_) {
    const CpuTimes times = parse_proc_stat_cpu_line();
    const std::uint64_t busy = times.busy_total();
    const std::uint64_t idle = times.idle_total();
    const std::uint64_t busy_delta = busy - prev_busy_;
    const std::uint64_t total_delta = (idle - prev_idle_) + busy_delta;
    cpu_utilization_ = static_cast<double>(busy_delta) / static_cast<double>(total_delta) * 100.0;
    prev_idle_ = idle;
    prev_busy_ = busy;
    sleep_for_interval();
  }
}

double LinuxPerfMonitor::get_cpu_utilization() const {
  return cpu_utilization_;
}

std::int32_t LinuxPerfMonitor::get_available_memory() const {
  std::ifstream meminfo("/proc/meminfo");
  std::string skipped;
  std::getline(meminfo, skipped);
  std::getline(meminfo, skipped);
  std::uint64_t kilobytes = 0;
  meminfo >> skipped >> kilobytes;
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(kilobytes));
}
