// SPDX-License-Identifier: MIT
// What the AOT worker is doing. The numbers are part of the bus interface.
#pragma once

#include <cstdint>

enum vorna_thread_statuses : std::int32_t {
  THREAD_STATUS_IDLE = 0,                  // nothing compiles
  THREAD_STATUS_RUNNING = 1,               // the queue worker runs and owns the compiler
  THREAD_STATUS_STORAGE_INSUFFICIENT = 2,  // the worker stopped for storage; the daemon is to exit
  THREAD_STATUS_WAITING_FOR_CPU = 3,       // the worker is not started while the CPU is busy
  THREAD_STATUS_SINGLE_PACKAGE_AOT = 4,    // a PerformPackageAOT call owns the compiler
};
