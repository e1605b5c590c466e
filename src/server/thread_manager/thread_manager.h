// SPDX-License-Identifier: MIT
// The state of the AOT worker: its status, the requests to it (pause, halt, abort), and who waits
// for the status to change. Everything that threads tell each other about the worker passes here.
// Entered by: every thread. thread_status_mutex_ comes before aot_queue_mtx and interrupt_mutex_.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <unordered_set>
#include <utility>

#include "server/thread_manager/thread_statuses.h"

namespace server {

class TarrowWatchdogNotifier;

class ThreadManager {
 public:
  ThreadManager() : awaited_statuses_(1) {}
  ThreadManager(const ThreadManager&) = delete;
  ThreadManager& operator=(const ThreadManager&) = delete;

  vorna_thread_statuses get_thread_status();
  bool is_paused();

  // Calls f with the status and the held lock on it, which f owns from there on, and returns what f
  // returns.
  template <typename Function>
  auto run_with_thread_status(Function&& f) {
    std::unique_lock lock(thread_status_mutex_);
    const vorna_thread_statuses status = thread_status_;
    return std::forward<Function>(f)(status, std::move(lock));
  }
  // `held` is the lock that run_with_thread_status gave.
  void set_thread_status(vorna_thread_statuses status, const std::unique_lock<std::mutex>& held);
  void set_thread_status(vorna_thread_statuses status);
  // Ends a worker's run: pending halt and abort requests die with it, a pause outlives it.
  void clear_interrupt_and_set_thread_status(vorna_thread_statuses status);

  void request_pause();
  void request_resume();
  void request_halt();
  void request_abort();
  // Whether a halt or an abort is pending; consumes neither.
  bool is_interrupt_requested();

  std::unique_lock<std::mutex> lock_interrupt() { return std::unique_lock(interrupt_mutex_); }
  // Consumes the pending requests. `lock` is that of lock_interrupt and is released; the flags are
  // only ever set.
  void check_interrupt(std::unique_lock<std::mutex> lock, bool& halted, bool& aborted);
  // Blocks while the worker is paused, unless a halt or an abort is pending, then consumes the
  // requests. Every wake-up heartbeats through the notifier, which may be null.
  void wait_on_pause_and_check_interrupt(bool& halted, bool& aborted,
                                         TarrowWatchdogNotifier* notifier);
  // Wakes whoever waits on any of the conditions, to look around and heartbeat.
  void wake_all_waiters();

  // While it lives, somebody waits for the status to leave a value.
  class AwaitedStatus {
   public:
    AwaitedStatus(ThreadManager& manager, vorna_thread_statuses status);
    ~AwaitedStatus();
    AwaitedStatus(const AwaitedStatus&) = delete;
    AwaitedStatus& operator=(const AwaitedStatus&) = delete;

    // True as soon as the status has another value, false after the time-out. `held` is the lock on
    // the status.
    bool wait_until_left(std::unique_lock<std::mutex>& held, std::chrono::milliseconds timeout);

   private:
    ThreadManager& manager_;
    const vorna_thread_statuses status_;
  };
  bool is_awaited(vorna_thread_statuses status);

 private:
  vorna_thread_statuses thread_status_ = THREAD_STATUS_IDLE;
  // One element for each thread that waits for the status to leave that value.
  std::unordered_multiset<vorna_thread_statuses> awaited_statuses_;
  std::mutex awaited_statuses_mutex_;
  bool abort_requested_ = false;
  bool halt_requested_ = false;
  bool paused_ = false;
  std::mutex thread_status_mutex_;
  std::mutex interrupt_mutex_;  // guards the three requests
  std::condition_variable thread_status_cv_;
  std::condition_variable interrupt_cv_;
};

}  // namespace server
