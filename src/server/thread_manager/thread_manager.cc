// SPDX-License-Identifier: MIT
#include "server/thread_manager/thread_manager.h"

#include "common/log.h"
#include "server/tarrow_watchdog_notifier/tarrow_watchdog_notifier.h"

namespace server {

vorna_thread_statuses ThreadManager::get_thread_status() {
  const std::lock_guard lock(thread_status_mutex_);
  return thread_status_;
}

bool ThreadManager::is_paused() {
  const std::lock_guard lock(interrupt_mutex_);
  return paused_;
}

void ThreadManager::set_thread_status(vorna_thread_statuses status,
                                      const std::unique_lock<std::mutex>&) {
  thread_status_ = status;
  thread_status_cv_.notify_all();
}

void ThreadManager::set_thread_status(vorna_thread_statuses status) {
  set_thread_status(status, std::unique_lock(thread_status_mutex_));
}

void ThreadManager::clear_interrupt_and_set_thread_status(vorna_thread_statuses status) {
  const std::lock_guard status_lock(thread_status_mutex_);
  const std::lock_guard interrupt_lock(interrupt_mutex_);
  thread_status_ = status;
  abort_requested_ = false;
  halt_requested_ = false;
  interrupt_cv_.notify_all();
  thread_status_cv_.notify_all();
}

void ThreadManager::request_pause() {
  LOGD("Pause requested");
  const std::lock_guard lock(interrupt_mutex_);
  paused_ = true;
  interrupt_cv_.notify_all();
}

void ThreadManager::request_resume() {
  LOGD("Resume requested");
  const std::lock_guard lock(interrupt_mutex_);
  paused_ = false;
  interrupt_cv_.notify_all();
}

void ThreadManager::request_halt() {
  LOGD("Halt requested");
  const std::lock_guard lock(interrupt_mutex_);
  halt_requested_ = true;
  interrupt_cv_.notify_all();
}

void ThreadManager::request_abort() {
  LOGD("Abort requested");
  const std::lock_guard lock(interrupt_mutex_);
  abort_requested_ = true;
  interrupt_cv_.notify_all();
}

bool ThreadManager::is_interrupt_requested() {
  const std::lock_guard lock(interrupt_mutex_);
  return halt_requested_ || abort_requested_;
}

void ThreadManager::check_interrupt([[maybe_unused]] std::unique_lock<std::mutex> lock,
                                    bool& halted, bool& aborted) {
  LOGD("Checking interrupt");
  aborted |= std::exchange(abort_requested_, false);
  halted |= std::exchange(halt_requested_, false);
  if (halted || aborted) interrupt_cv_.notify_all();
}

void ThreadManager::wait_on_pause_and_check_interrupt(bool& halted, bool& aborted,
                                                      TarrowWatchdogNotifier* notifier) {
  LOGD("Wait on pause");
  std::unique_lock lock(interrupt_mutex_);
  while (paused_ && !halt_requested_ && !abort_requested_) {
    if (notifier != nullptr) notifier->notify();
    interrupt_cv_.wait(lock);
  }
  check_interrupt(std::move(lock), halted, aborted);
}

void ThreadManager::wake_all_waiters() {
  interrupt_cv_.notify_all();
  thread_status_cv_.notify_all();
}

ThreadManager::AwaitedStatus::AwaitedStatus(ThreadManager& manager, vorna_thread_statuses status)
    : manager_(manager), status_(status) {
  const std::lock_guard lock(manager_.awaited_statuses_mutex_);
  manager_.awaited_statuses_.insert(status_);
}

ThreadManager::AwaitedStatus::~AwaitedStatus() {
  const std::lock_guard lock(manager_.awaited_statuses_mutex_);
  const auto it = manager_.awaited_statuses_.find(status_);
  if (it != manager_.awaited_statuses_.end()) manager_.awaited_statuses_.erase(it);
}

bool ThreadManager::AwaitedStatus::wait_until_left(std::unique_lock<std::mutex>& held,
                                                   std::chrono::milliseconds timeout) {
  return manager_.thread_status_cv_.wait_for(held, timeout,
                                             [this] { return manager_.thread_status_ != status_; });
}

bool ThreadManager::is_awaited(vorna_thread_statuses status) {
  const std::lock_guard lock(awaited_statuses_mutex_);
  return awaited_statuses_.contains(status);
}

}  // namespace server
