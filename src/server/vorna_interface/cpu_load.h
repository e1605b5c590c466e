// SPDX-License-Identifier: MIT
// Keeps compile work from disturbing the device: the gate that tells whether the CPU is too busy,
// and the scheduling group of the daemon's own process. Entered by: any thread; atomics only.
#pragma once

// Per cent of all CPUs together; above it nothing is compiled in the background.
inline constexpr double kMaxCpuUtilization = 50.0;

// Answers from the latest sample, without waiting. Always false while monitoring is switched off.
bool is_cpu_utilization_high();

// The background group is the daemon's place; it leaves for the running group while it serves a
// client's request to compile.
void start_boost_by_pid();
void end_boost_by_pid();
void start_boost_to_running_by_pid();
void end_boost_from_running_by_pid();
