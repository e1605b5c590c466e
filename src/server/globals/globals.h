// SPDX-License-Identifier: MIT
// Everything process-wide, in one place: made before main in the order of globals.cc, and destroyed
// in reverse after it, when no thread is left that uses it (see orderly_end.h).
#pragma once

#include <gio/gio.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "common/performance_monitor/perf_monitor.h"
#include "common/vorna_utils/aot_queue.h"
#include "server/globals/compile_in_progress.h"
#include "server/globals/detached_threads.h"
#include "server/recovery_file_watcher/recovery_file_watcher.h"
#include "server/thread_manager/thread_manager.h"

namespace boost::asio {
class thread_pool;
}

extern DetachedThreads detached_threads;
extern CompileInProgress compile_in_progress;

extern std::shared_ptr<server::ThreadManager> tm;
extern std::mutex aot_queue_mtx;  // guards aot_queue and the queue file
extern AOTQueue aot_queue;
extern std::mutex
    perform_aot_mtx;  // held for the whole of a PerformPackageAOT call; before all others
extern std::unique_ptr<server::RecoveryFileWatcher> watcher;
extern std::unique_ptr<PerfMonitor> perf_monitor;

// Method calls accepted but not yet answered.
extern std::mutex num_of_pending_method_calls_mtx;
extern std::condition_variable num_of_pending_method_calls_cv;  // notified when it drops
extern std::int32_t num_of_pending_method_calls;

extern std::int32_t check_thread_idle_count;  // consecutive idle checks; main loop only
extern std::atomic<bool> is_cpu_usage_logging_enabled;
extern std::atomic<bool> is_cpu_usage_monitoring_enabled;
extern std::atomic<bool> is_ending;  // the main loop has ended: no new compile begins

// Main loop only.
extern GDBusNodeInfo* introspection_data;
extern guint owner_id;  // 0 while the bus name is neither owned nor asked for
extern GMainLoop* vorna_mainloop;

// The connection for replies and signals. Workers take a reference of their own, for it is released
// while they may still run.
extern std::mutex global_conn_mtx;
extern GDBusConnection* global_conn;

// Holds four idle threads until exit; calls go to the system executor.
extern boost::asio::thread_pool method_call_pool;
