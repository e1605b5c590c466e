// SPDX-License-Identifier: MIT
#include "server/tarrow_watchdog_notifier/tarrow_watchdog_notifier.h"

#include <unistd.h>

#include <exception>
#include <mutex>
#include <utility>

#include "common/log.h"
#include "platform/watchdog.h"

namespace {

constexpr int kWatchdogTimeoutSeconds = 3600;
constexpr unsigned int kWatchdogTimerSeconds = 600;

}  // namespace

namespace server {

struct TarrowWatchdogNotifier::Timer {
  std::mutex mutex;
  TarrowWatchdogNotifier* notifier = nullptr;  // null once the notifier is ending
};

TarrowWatchdogNotifier::TarrowWatchdogNotifier(
    std::function<void(TarrowWatchdogNotifier*)> on_timeout)
    : owner_tid_(gettid()), on_timeout_(std::move(on_timeout)), timer_(std::make_shared<Timer>()) {
  if (tarrow_register_watchdog_service(kWatchdogTimeoutSeconds) != 0) {
    LOGE("Failed to register watchdog service [%d]", owner_tid_);
    std::terminate();
  }
  {
    const std::lock_guard lock(timer_->mutex);
    timer_->notifier = this;
  }
  timeout_source_id_ = g_timeout_add_seconds_full(
      G_PRIORITY_DEFAULT, kWatchdogTimerSeconds, g_notify_cb, new std::shared_ptr<Timer>(timer_),
      [](gpointer timer) { delete static_cast<std::shared_ptr<Timer>*>(timer); });
  LOGD("Registered tarrow watchdog service [%d]", owner_tid_);
}

TarrowWatchdogNotifier::~TarrowWatchdogNotifier() {
  LOGD("Finalize [%d]", owner_tid_);
  {
    const std::lock_guard lock(timer_->mutex);
    timer_->notifier = nullptr;
  }
  g_source_remove(timeout_source_id_);
  tarrow_unregister_watchdog_service();
}

gboolean TarrowWatchdogNotifier::g_notify_cb(gpointer timer) {
  const std::shared_ptr<Timer> held = *static_cast<std::shared_ptr<Timer>*>(timer);
  const std::lock_guard lock(held->mutex);
  if (held->notifier != nullptr) held->notifier->on_timeout_(held->notifier);
  return G_SOURCE_CONTINUE;
}

void TarrowWatchdogNotifier::notify() const {
  if (gettid() != owner_tid_) {
    LOGE("Trying to notify from a different thread");
    return;
  }
  LOGD("Notifying watchdog [%d]", owner_tid_);
  tarrow_watchdog_notify();
}

}  // namespace server
