// SPDX-License-Identifier: MIT
#include "server/vorna_server/orderly_end.h"

#include <chrono>
#include <mutex>

#include "server/globals/globals.h"
#include "server/vorna_interface/compiler_process.h"
#include "server/vorna_server/bus_name.h"
#include "server/vorna_server/method_dispatch.h"

namespace {

using Clock = std::chrono::steady_clock;

// A killed compiler ends within a fraction of a second; a platform library that hangs is not waited
// for any longer.
constexpr std::chrono::seconds kPatience(5);
constexpr std::chrono::milliseconds kCheckInterval(50);

// The halt ends the worker at its next check; a compile ends with its compiler.
void stop_compiling(Clock::time_point deadline) {
  if (detached_threads.wait_until_none(Clock::duration::zero())) return;
  tm->request_halt();
  while (!detached_threads.wait_until_none(kCheckInterval) && Clock::now() < deadline) {
    if (const auto package_id = compile_in_progress.package_id()) {
      kill_crossgen(package_id->c_str());
    }
  }
}

bool wait_for_pending_calls(Clock::time_point deadline) {
  std::unique_lock lock(num_of_pending_method_calls_mtx);
  return num_of_pending_method_calls_cv.wait_until(lock, deadline,
                                                   [] { return num_of_pending_method_calls == 0; });
}

void close_connection() {
  if (global_conn == nullptr) return;
  g_dbus_connection_flush_sync(global_conn, nullptr, nullptr);
  g_dbus_connection_close_sync(global_conn, nullptr, nullptr);
}

}  // namespace

bool end_work() {
  is_ending = true;
  const Clock::time_point deadline = Clock::now() + kPatience;
  dispatch_deferred_calls();
  stop_compiling(deadline);
  release_bus_name_and_dispatch_calls(deadline);
  const bool all_answered = wait_for_pending_calls(deadline);
  const bool all_threads_ended = detached_threads.wait_until_none(kCheckInterval);
  close_connection();
  return all_answered && all_threads_ended;
}
