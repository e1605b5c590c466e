// SPDX-License-Identifier: MIT
// Registers the thread that constructs it with the deadlock watchdog and heartbeats from it. A
// timer on the main loop wakes that thread, wherever it waits, often enough to be in time. Entered
// by: the owning thread; the main loop (g_notify_cb), which reaches the notifier only through the
// timer's own lock.
#pragma once

#include <functional>
#include <memory>

#include <glib.h>

namespace server {

class TarrowWatchdogNotifier {
 public:
  // on_timeout runs on the main loop every 10 minutes. Ends the process when the watchdog refuses
  // the registration: work that nobody watches must not run.
  explicit TarrowWatchdogNotifier(std::function<void(TarrowWatchdogNotifier*)> on_timeout);
  // Once it returns, on_timeout neither runs nor will run.
  ~TarrowWatchdogNotifier();
  TarrowWatchdogNotifier(const TarrowWatchdogNotifier&) = delete;
  TarrowWatchdogNotifier& operator=(const TarrowWatchdogNotifier&) = delete;

  // One heartbeat; only from the owning thread, since the watchdog counts by thread.
  void notify() const;

 private:
  struct Timer;
  static gboolean g_notify_cb(gpointer timer);

  int owner_tid_;
  unsigned int timeout_source_id_ = 0;
  std::function<void(TarrowWatchdogNotifier*)> on_timeout_;
  // Shared with the timeout source, whose callback may be running while the owner ends.
  std::shared_ptr<Timer> timer_;
};

}  // namespace server
