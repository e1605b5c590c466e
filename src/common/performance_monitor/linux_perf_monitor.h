// SPDX-License-Identifier: MIT
// Samples /proc/stat every 3 seconds on a thread of its own, from construction to destruction.
// Everything that this thread shares is atomic.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "common/performance_monitor/perf_monitor.h"

// The aggregate line of /proc/stat in the kernel's words; clock ticks since boot.
struct CpuTimes {
  std::uint64_t user = 0;
  std::uint64_t nice = 0;
  std::uint64_t system = 0;
  std::uint64_t idle = 0;
  std::uint64_t iowait = 0;
  std::uint64_t irq = 0;
  std::uint64_t softirq = 0;
  std::uint64_t steal = 0;
  std::uint64_t guest = 0;       // part of user already
  std::uint64_t guest_nice = 0;  // part of nice already

  std::uint64_t idle_total() const { return idle + iowait; }
  std::uint64_t busy_total() const { return user + nice + system + irq + softirq + steal; }
};

class LinuxPerfMonitor : public PerfMonitor {
 public:
  // The sampler starts before the baseline is taken, so its first value may be the average since
  // boot instead of that of an interval.
  LinuxPerfMonitor();
  // Waits for the sampler's current sleep: up to 3 seconds.
  ~LinuxPerfMonitor() override;
  LinuxPerfMonitor(const LinuxPerfMonitor&) = delete;
  LinuxPerfMonitor& operator=(const LinuxPerfMonitor&) = delete;

  // From the third line of /proc/meminfo, whatever it says; the low 32 bits of the number.
  std::int32_t get_available_memory() const override;
  double get_cpu_utilization() const override;

 private:
  static CpuTimes parse_proc_stat_cpu_line();
  void monitor();

  std::atomic<bool> stop_requested_ = false;
  std::thread monitor_thread_;
  // Totals of the previous sample, clock ticks. Written by the constructor's baseline and by the
  // sampler, unordered.
  std::atomic<std::uint64_t> prev_idle_ = 0;
  std::atomic<std::uint64_t> prev_busy_ = 0;
  std::atomic<double> cpu_utilization_ = 0.0;
};
