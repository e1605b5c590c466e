// SPDX-License-Identifier: MIT
#include "server/vorna_server/worker_start.h"

#include <system_error>
#include <utility>

#include "common/log.h"
#include "server/globals/globals.h"
#include "server/vorna_interface/cpu_load.h"
#include "server/vorna_interface/queue_worker.h"

namespace {

bool is_queue_empty() {
  const std::lock_guard lock(aot_queue_mtx);
  return aot_queue.empty();
}

}  // namespace

vorna_thread_statuses try_set_thread_status_running(vorna_thread_statuses status,
                                                    std::unique_lock<std::mutex> lock) {
  if (status == THREAD_STATUS_RUNNING || status == THREAD_STATUS_SINGLE_PACKAGE_AOT) {
    LOGD("Worker thread busy");
    return status;
  }
  if (status == THREAD_STATUS_STORAGE_INSUFFICIENT) {
    LOGE("Insufficient storage, exit vorna_server");
    g_main_loop_quit(vorna_mainloop);
    return status;
  }
  const auto leave_with = [&lock](vorna_thread_statuses new_status) {
    tm->set_thread_status(new_status, lock);
    lock.unlock();
    return new_status;
  };
  if (is_queue_empty()) return leave_with(THREAD_STATUS_IDLE);
  if (is_cpu_utilization_high()) {
    leave_with(THREAD_STATUS_WAITING_FOR_CPU);
    LOGE("Waiting until CPU is low");
    return THREAD_STATUS_WAITING_FOR_CPU;
  }
  // A client that waits for the compiler goes first.
  if (tm->is_awaited(THREAD_STATUS_RUNNING)) {
    lock.unlock();
    LOGD("Another thread is waiting for the thread status to stop running");
    return status;
  }
  leave_with(THREAD_STATUS_RUNNING);
  try {
    detached_threads.start(aot_queue_process);
  } catch (const std::system_error&) {
    // No thread is to be had now; the next check tries again.
    tm->set_thread_status(THREAD_STATUS_WAITING_FOR_CPU);
    return THREAD_STATUS_WAITING_FOR_CPU;
  }
  return THREAD_STATUS_RUNNING;
}
