// SPDX-License-Identifier: MIT
// The operations behind the bus methods that steer the daemon and ask for its state.
// Entered by: method-call threads; set_aot_daemon_priority also by the main thread at start-up.
#pragma once

#include <cstdint>
#include <string>

#include "common/vorna_error.h"
#include "server/thread_manager/thread_statuses.h"

enum vorna_daemon_process_command : std::int32_t {
  DAEMON_PROCESS_START = 0,  // resume the worker
  DAEMON_PROCESS_PAUSE = 1,
};

// Pauses or resumes the worker, which obeys at its next checkpoint. VORNA_ERROR_DAEMON_PROCESS for
// any other command.
vorna_error aot_daemon_process(vorna_daemon_process_command command);

// The nice value of the main thread, which the worker inherits; the kernel clamps it.
vorna_error set_aot_daemon_priority(int priority);

struct DaemonStatus {
  std::string current_package;  // the front of the queue, or a text that it is empty
  std::int32_t queue_size = 0;
  bool is_paused = false;
  vorna_thread_statuses thread_status = THREAD_STATUS_IDLE;
};
DaemonStatus get_aot_daemon_status();

void enable_cpu_usage_logging(bool enabled);
void enable_cpu_usage_monitoring(bool enabled);

// Removes a package's native images; its place in the queue is not touched.
vorna_error clean_aot_in_package(const char* package_id);
