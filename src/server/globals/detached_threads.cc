// SPDX-License-Identifier: MIT
#include "server/globals/detached_threads.h"

#include <system_error>
#include <thread>
#include <utility>

void DetachedThreads::start(std::function<void()> body) {
  {
    const std::lock_guard lock(mutex_);
    ++count_;
  }
  try {
    std::thread([this, body = std::move(body)]() mutable {
      body();
      body = nullptr;
      one_ended();
    }).detach();
  } catch (const std::system_error&) {
    one_ended();
    throw;
  }
}

bool DetachedThreads::wait_until_none(std::chrono::nanoseconds timeout) {
  std::unique_lock lock(mutex_);
  return none_left_.wait_for(lock, timeout, [this] { return count_ == 0; });
}

// Notifies with the lock held: whoever waits may destroy this object as soon as it has the lock.
void DetachedThreads::one_ended() {
  const std::lock_guard lock(mutex_);
  if (--count_ == 0) none_left_.notify_all();
}
