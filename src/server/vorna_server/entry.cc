// SPDX-License-Identifier: MIT
#include "server/vorna_server/entry.h"

#include <glib-unix.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <utility>

#include "common/kx_utils/files.h"
#include "common/log.h"
#include "server/globals/globals.h"
#include "server/vorna_interface/cpu_load.h"
#include "server/vorna_interface/daemon_commands.h"
#include "server/vorna_interface/queue_operations.h"
#include "server/vorna_server/bus_interface.h"
#include "server/vorna_server/bus_name.h"
#include "server/vorna_server/idle_monitor.h"
#include "server/vorna_server/orderly_end.h"
#include "server/vorna_server/recovery_callbacks.h"

namespace {

// Operators know the lines of the entry by this function name.
constexpr char kMain[] = "main";
constexpr int kStartFailed = -1;
// The lowest priority, whatever the kernel makes of it.
constexpr int kInitialPriority = 20;

gboolean quit_on_signal(gpointer) {
  g_main_loop_quit(vorna_mainloop);
  return G_SOURCE_CONTINUE;
}

int server_init() {
  LOGI("vorna_server : start");
  if (!parse_interface_description()) return kStartFailed;
  if (own_bus_name()) return 0;
  g_dbus_node_info_unref(std::exchange(introspection_data, nullptr));
  return kStartFailed;
}

bool prepare_data() {
  if (!createDir(kDataDirectory)) {
    LOGE_AS(kMain, "Unable to create vorna directory at %s", kDataDirectory);
    return false;
  }
  if (!init_aot_queue()) {
    LOGE_AS(kMain, "fail init aot queue file");
    return false;
  }
  return true;
}

bool start() {
  start_boost_by_pid();
  LOGI_AS(kMain, "Max CPU Utilization set to %f", kMaxCpuUtilization);
  if (!prepare_data()) return false;
  set_aot_daemon_priority(kInitialPriority);
  if (const int result = server_init(); result != 0) {
    LOGE_AS(kMain, "vorna_server init failed(%d)", result);
    return false;
  }
  vorna_mainloop = g_main_loop_new(nullptr, FALSE);
  if (vorna_mainloop == nullptr) {
    LOGE_AS(kMain, "g_main_loop_new failed");
    return false;
  }
  tm = std::make_shared<server::ThreadManager>();
  watcher = std::make_unique<server::RecoveryFileWatcher>(on_recovery_file_created,
                                                          on_recovery_file_deleted);
  g_timeout_add_seconds(kIdleCheckSeconds, check_thread, nullptr);
  return true;
}

void finalize() {
  LOGD("finalize started");
  if (introspection_data != nullptr) {
    g_dbus_node_info_unref(std::exchange(introspection_data, nullptr));
  }
  {
    const std::lock_guard lock(global_conn_mtx);
    if (global_conn != nullptr) g_object_unref(std::exchange(global_conn, nullptr));
  }
  g_main_loop_unref(std::exchange(vorna_mainloop, nullptr));
  end_boost_by_pid();
  if (owner_id != 0) g_bus_unown_name(std::exchange(owner_id, 0));
  LOGD("finalize completed");
}

}  // namespace

int run_vorna_server() {
  // Before anything else: a signal during the start is obeyed as soon as the main loop runs.
  g_unix_signal_add(SIGTERM, quit_on_signal, nullptr);
  g_unix_signal_add(SIGINT, quit_on_signal, nullptr);
  if (!start()) return kStartFailed;
  g_main_loop_run(vorna_mainloop);
  const bool work_ended = end_work();
  finalize();
  LOGI_AS(kMain, "vorna_server : end");
  // Threads that are still at work must not meet destroyed globals.
  if (!work_ended) std::_Exit(EXIT_SUCCESS);
  return EXIT_SUCCESS;
}
