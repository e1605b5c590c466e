// SPDX-License-Identifier: MIT
#include "server/globals/globals.h"

#include <boost/asio/thread_pool.hpp>

#include "common/performance_monitor/linux_perf_monitor.h"

// What a thread touches last as it ends comes first here, so that it is destroyed last.
DetachedThreads detached_threads;
CompileInProgress compile_in_progress;
std::mutex num_of_pending_method_calls_mtx;
std::condition_variable num_of_pending_method_calls_cv;
std::int32_t num_of_pending_method_calls = 0;
std::mutex aot_queue_mtx;
std::mutex perform_aot_mtx;
std::mutex global_conn_mtx;

std::shared_ptr<server::ThreadManager> tm;
AOTQueue aot_queue;
std::unique_ptr<server::RecoveryFileWatcher> watcher;
std::unique_ptr<PerfMonitor> perf_monitor = std::make_unique<LinuxPerfMonitor>();
boost::asio::thread_pool method_call_pool(4);

std::int32_t check_thread_idle_count = 0;
std::atomic<bool> is_cpu_usage_logging_enabled = false;
std::atomic<bool> is_cpu_usage_monitoring_enabled = true;
std::atomic<bool> is_ending = false;

GDBusNodeInfo* introspection_data = nullptr;
guint owner_id = 0;
GMainLoop* vorna_mainloop = nullptr;
GDBusConnection* global_conn = nullptr;
