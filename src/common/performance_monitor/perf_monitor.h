// SPDX-License-Identifier: MIT
// How busy the system is. Readers on any thread never block and never touch the file system for the
// CPU utilisation.
#pragma once

#include <cstdint>

class PerfMonitor {
 public:
  virtual ~PerfMonitor() = default;
  // Memory available to new work, kilobytes.
  virtual std::int32_t get_available_memory() const = 0;
  // Share of the last sampling interval in which the CPUs, all together, were not idle; per cent.
  // NaN when no time has passed between the samples.
  virtual double get_cpu_utilization() const = 0;
};
