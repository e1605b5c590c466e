// SPDX-License-Identifier: MIT
// The worker's status, its interrupts and its heartbeat.
#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <latch>
#include <thread>

#include "script.h"
#include "server/tarrow_watchdog_notifier/tarrow_watchdog_notifier.h"
#include "server/thread_manager/thread_manager.h"

namespace {

using server::TarrowWatchdogNotifier;
using server::ThreadManager;

struct Interrupt {
  bool halted = false, aborted = false;
};

Interrupt WaitOnPause(ThreadManager& manager) {
  Interrupt seen;
  manager.wait_on_pause_and_check_interrupt(seen.halted, seen.aborted, nullptr);
  return seen;
}

TEST(Interrupts, PausedWorkerWakesForEachRequestAndConsumesItOnce) {
  Script script;
  ThreadManager manager;
  using Request = void (ThreadManager::*)();
  const std::tuple<std::vector<Request>, bool, bool> table[] = {
      {{&ThreadManager::request_halt}, true, false},
      {{&ThreadManager::request_abort}, false, true},
      {{&ThreadManager::request_halt, &ThreadManager::request_resume}, true, false},
      {{&ThreadManager::request_resume}, false, false},
  };
  int waits = 0;
  for (const auto& [requests, halted, aborted] : table) {
    manager.request_pause();
    auto worker = std::async(std::launch::async, [&] { return WaitOnPause(manager); });
    script.WaitForLog("Wait on pause", ++waits);
    for (const Request request : requests) (manager.*request)();
    const Interrupt seen = worker.get();
    EXPECT_EQ(std::pair(seen.halted, seen.aborted), std::pair(halted, aborted)) << waits;
    EXPECT_FALSE(manager.is_interrupt_requested()) << waits;
  }
}

TEST(Interrupts, HaltAndAbortTogetherAreBothReportedAndPauseOutlivesThem) {
  Script script;
  ThreadManager manager;
  manager.request_pause();
  manager.request_abort();
  manager.request_halt();
  const Interrupt seen = WaitOnPause(manager);
  EXPECT_TRUE(seen.halted && seen.aborted && manager.is_paused());
  manager.request_halt();
  manager.clear_interrupt_and_set_thread_status(THREAD_STATUS_IDLE);
  EXPECT_FALSE(manager.is_interrupt_requested());
  EXPECT_TRUE(manager.is_paused());
}

TEST(Statuses, EachOfTwoThatWaitCountsUntilItHasSeenTheStatusLeave) {
  Script script;
  ThreadManager manager;
  manager.set_thread_status(THREAD_STATUS_RUNNING);
  std::latch registered(2), release_second(1);
  const auto wait = [&](bool second) {
    manager.run_with_thread_status([&](vorna_thread_statuses, std::unique_lock<std::mutex> lock) {
      ThreadManager::AwaitedStatus running(manager, THREAD_STATUS_RUNNING);
      registered.count_down();
      EXPECT_TRUE(running.wait_until_left(lock, std::chrono::hours(1)));
      lock.unlock();
      if (second) release_second.wait();
    });
  };
  std::thread first(wait, false), second(wait, true);
  registered.wait();
  EXPECT_TRUE(manager.is_awaited(THREAD_STATUS_RUNNING));
  EXPECT_FALSE(manager.is_awaited(THREAD_STATUS_IDLE));
  manager.clear_interrupt_and_set_thread_status(THREAD_STATUS_IDLE);
  first.join();
  EXPECT_TRUE(manager.is_awaited(THREAD_STATUS_RUNNING));
  release_second.count_down();
  second.join();
  EXPECT_FALSE(manager.is_awaited(THREAD_STATUS_RUNNING));
}

// Makes the timer of the notifier that is constructed next fire as soon as the main loop runs.
class TimerProbe {
 public:
  TimerProbe() : id_(g_idle_add([](gpointer) -> gboolean { return G_SOURCE_REMOVE; }, nullptr)) {}
  void Fire() {
    GSource* source = g_main_context_find_source_by_id(nullptr, id_ + 1);
    ASSERT_NE(source, nullptr);
    g_source_set_ready_time(source, 0);
  }

 private:
  guint id_;
};

TEST(Watchdog, TimerThatFiresWhileItsOwnerEndsReachesNoDestroyedNotifier) {
  Script script;
  TimerProbe timer;
  std::latch constructed(1), fired(1);
  int calls = 0;
  std::thread owner([&] {
    TarrowWatchdogNotifier notifier([&](TarrowWatchdogNotifier* self) {
      fired.count_down();
      script.WaitForLog("Finalize");
      self->notify();
      ++calls;
    });
    constructed.count_down();
    fired.wait();
  });
  constructed.wait();
  timer.Fire();
  while (calls == 0) g_main_context_iteration(nullptr, TRUE);
  owner.join();
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(script.Count("Trying to notify from a different thread"), 1);
  EXPECT_TRUE(script.Calls("tarrow_watchdog_notify").empty());
  EXPECT_EQ(script.Calls("tarrow_unregister_watchdog_service").size(), 1u);
}

TEST(Watchdog, PausedWorkerHeartbeatsFromItsOwnThreadWheneverTheTimerWakesIt) {
  Script script;
  ThreadManager manager;
  TimerProbe timer;
  manager.request_pause();
  std::thread worker([&] {
    TarrowWatchdogNotifier notifier([&](TarrowWatchdogNotifier*) { manager.wake_all_waiters(); });
    Interrupt seen;
    manager.wait_on_pause_and_check_interrupt(seen.halted, seen.aborted, &notifier);
  });
  script.WaitForLog("Notifying watchdog");
  // Taken so that the worker waits already when the timer wakes it.
  manager.lock_interrupt().unlock();
  timer.Fire();
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  script.WaitForLog("Notifying watchdog", 2);
  manager.request_resume();
  worker.join();
  EXPECT_EQ(script.Count("Trying to notify"), 0);
}

TEST(WatchdogDeathTest, RefusedRegistrationEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        Script script;
        script.Result("tarrow_register_watchdog_service", "3600", 1);
        TarrowWatchdogNotifier notifier([](TarrowWatchdogNotifier*) {});
      },
      testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
