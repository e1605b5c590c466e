// SPDX-License-Identifier: MIT
#include "server/vorna_interface/daemon_commands.h"

#include <sys/resource.h>
#include <unistd.h>

#include <mutex>

#include "common/log.h"
#include "platform/native_image.h"
#include "server/globals/globals.h"
#include "server/vorna_interface/queue_operations.h"

vorna_error aot_daemon_process(vorna_daemon_process_command command) {
  LOGD("process_command: %d", command);
  switch (command) {
    case DAEMON_PROCESS_PAUSE:
      tm->request_pause();
      LOGI("vorna paused");
      return VORNA_ERROR_NONE;
    case DAEMON_PROCESS_START:
      tm->request_resume();
      LOGI("vorna started");
      return VORNA_ERROR_NONE;
  }
  LOGE("Invalid process command");
  return VORNA_ERROR_DAEMON_PROCESS;
}

vorna_error set_aot_daemon_priority(int priority) {
  LOGI("priority: %d", priority);
  const int result = setpriority(PRIO_PROCESS, static_cast<id_t>(getpid()), priority);
  return result == 0 ? VORNA_ERROR_NONE : VORNA_ERROR_SET_PRIORITY;
}

DaemonStatus get_aot_daemon_status() {
  DaemonStatus status;
  if (const boost::optional<AOTPackage> front = get_front_package()) {
    status.current_package = front->package_id;
    const std::lock_guard lock(aot_queue_mtx);
    status.queue_size = static_cast<std::int32_t>(aot_queue.size());
  } else {
    status.current_package = "Queue is Empty!";
  }
  status.is_paused = tm->is_paused();
  status.thread_status = tm->get_thread_status();
  LOGD("daemon status: current package: %s, queue size: %d, is paused: %d, thread status: %d",
       status.current_package.c_str(), status.queue_size, status.is_paused, status.thread_status);
  return status;
}

void enable_cpu_usage_logging(bool enabled) {
  is_cpu_usage_logging_enabled = enabled;
  LOGI("CPU Usage Logging is %s", is_cpu_usage_logging_enabled ? "enabled" : "disabled");
}

void enable_cpu_usage_monitoring(bool enabled) {
  is_cpu_usage_monitoring_enabled = enabled;
  LOGI("CPU Usage Monitoring is %s", is_cpu_usage_monitoring_enabled ? "enabled" : "disabled");
}

vorna_error clean_aot_in_package(const char* package_id) {
  if (initNativeImageCommon() != 0) {
    LOGE("Initialize NI Common failed");
    return VORNA_ERROR_NI_LIBRARY;
  }
  const int removed = removeNativeImagesUnderPackageRoot(package_id);
  if (removed != 0) LOGE("Remove NI under PKG root failed [%s]", package_id);
  finalizeNativeImageCommon();
  return removed == 0 ? VORNA_ERROR_NONE : VORNA_ERROR_NI_LIBRARY;
}
