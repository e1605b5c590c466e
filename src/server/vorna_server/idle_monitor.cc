// SPDX-License-Identifier: MIT
#include "server/vorna_server/idle_monitor.h"

#include <mutex>

#include "common/log.h"
#include "server/globals/globals.h"
#include "server/vorna_interface/cpu_load.h"
#include "server/vorna_server/bus_name.h"
#include "server/vorna_server/worker_start.h"

namespace {

constexpr std::int32_t kIdleChecksBeforeExit = 2;

bool should_keep_server_alive(vorna_thread_statuses status) {
  const bool is_paused = tm->is_paused();
  const std::lock_guard lock(num_of_pending_method_calls_mtx);
  const bool is_idle = num_of_pending_method_calls < 1 && status == THREAD_STATUS_IDLE &&
                       !is_cpu_usage_logging_enabled && !is_paused;
  if (!is_idle) {
    LOGD("Keeping server alive");
    check_thread_idle_count = 0;
    return true;
  }
  if (check_thread_idle_count < kIdleChecksBeforeExit) {
    LOGD("Idle count: %d", ++check_thread_idle_count);
    return true;
  }
  // The seconds before this check, which log filters know as 10.
  LOGI("No job to do, idle for %d seconds, exit vorna_server",
       check_thread_idle_count * static_cast<std::int32_t>(kIdleCheckSeconds));
  return false;
}

}  // namespace

gboolean check_thread(gpointer) {
  // The end of the work still takes calls from the main context; it must not start a worker.
  if (is_ending) return G_SOURCE_REMOVE;
  is_cpu_utilization_high();  // for its log line
  const vorna_thread_statuses status = tm->run_with_thread_status(try_set_thread_status_running);
  if (status == THREAD_STATUS_STORAGE_INSUFFICIENT) return G_SOURCE_REMOVE;
  if (should_keep_server_alive(status)) return G_SOURCE_CONTINUE;
  // Calls that were on their way are answered by this daemon, which then goes on.
  if (!release_bus_name_unless_called()) return G_SOURCE_CONTINUE;
  g_main_loop_quit(vorna_mainloop);
  return G_SOURCE_REMOVE;
}
