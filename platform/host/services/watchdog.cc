// SPDX-License-Identifier: MIT
// The deadlock watchdog: one monitor thread sleeps until the earliest deadline of the registered
// threads; with none registered it sleeps without a time-out. Entered by any thread; the table of
// threads is guarded by its mutex.
#include "platform/watchdog.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "base/host_log.h"

namespace host {
namespace {

class Watchdog {
 public:
  // Never destroyed: the monitor thread lives as long as the process.
  static Watchdog& Instance() {
    static Watchdog* const instance = new Watchdog;
    return *instance;
  }

  void Register(std::chrono::seconds timeout) {
    char name[16] = "";
    pthread_getname_np(pthread_self(), name, sizeof name);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!monitor_started_) StartMonitor();
    threads_[gettid()] = {name, timeout, Clock::now() + timeout};
    changed_.notify_one();
  }

  bool Notify() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto thread = threads_.find(gettid());
    if (thread == threads_.end()) return false;
    // A later deadline needs no wake-up: the monitor looks again at the one that it sleeps for.
    thread->second.deadline = Clock::now() + thread->second.timeout;
    return true;
  }

  bool Unregister() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return threads_.erase(gettid()) == 1;
  }

 private:
  using Clock = std::chrono::steady_clock;
  struct Watched {
    std::string name;
    std::chrono::seconds timeout;
    Clock::time_point deadline;
  };

  // The program's signals are handled by its own threads.
  void StartMonitor() {
    sigset_t all;
    sigset_t old_mask;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old_mask);
    std::thread([this] { Monitor(); }).detach();
    pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
    monitor_started_ = true;
  }

  [[noreturn]] void Monitor() {
    pthread_setname_np(pthread_self(), "watchdog");
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      auto next = Clock::time_point::max();
      for (const auto& [tid, watched] : threads_) {
        if (watched.deadline <= Clock::now()) EndProcess(tid, watched);
        next = std::min(next, watched.deadline);
      }
      if (threads_.empty()) {
        changed_.wait(lock);
      } else {
        changed_.wait_until(lock, next);
      }
    }
  }

  [[noreturn]] static void EndProcess(pid_t tid, const Watched& watched) {
    HOST_LOG(ERROR, "Thread %d (%s) did not notify the watchdog within %lld seconds", tid,
             watched.name.c_str(), static_cast<long long>(watched.timeout.count()));
    abort();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<pid_t, Watched> threads_;
  bool monitor_started_ = false;
};

// The boundary: nothing is thrown at a caller in C.
template <typename Call>
int Guarded(Call call) {
  try {
    return call() ? 0 : -1;
  } catch (...) {
    return -1;
  }
}

}  // namespace
}  // namespace host

int tarrow_register_watchdog_service(int timeout_seconds) {
  if (timeout_seconds <= 0) return -1;
  return host::Guarded([&] {
    host::Watchdog::Instance().Register(std::chrono::seconds(timeout_seconds));
    return true;
  });
}

int tarrow_watchdog_notify() {
  return host::Guarded([] { return host::Watchdog::Instance().Notify(); });
}

int tarrow_unregister_watchdog_service() {
  return host::Guarded([] { return host::Watchdog::Instance().Unregister(); });
}
