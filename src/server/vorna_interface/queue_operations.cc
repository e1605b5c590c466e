// SPDX-License-Identifier: MIT
#include "server/vorna_interface/queue_operations.h"

#include <mutex>

#include "common/log.h"
#include "server/globals/globals.h"
#include "server/vorna_interface/compiler_process.h"

vorna_error add_package_to_aot_queue(const char* package_id) {
  LOGI("package_id: %s", package_id);
  const std::string id(package_id);
  const std::lock_guard lock(aot_queue_mtx);
  if (aot_queue.contains(id)) {
    LOGI("skip adding %s to queue, exists in queue", package_id);
    return VORNA_ERROR_NONE;
  }
  aot_queue.push_back(id);
  updateAOTQueueFile(aot_queue);
  return VORNA_ERROR_NONE;
}

vorna_error remove_package_from_aot_queue(const char* package_id) {
  return tm->run_with_thread_status(
      [package_id](vorna_thread_statuses status, std::unique_lock<std::mutex> status_lock) {
        std::unique_lock queue_lock(aot_queue_mtx);
        if (!aot_queue.contains(package_id)) {
          LOGE("Package %s not found in queue", package_id);
          return VORNA_ERROR_NOT_IN_QUEUE;
        }
        const std::string front_id = aot_queue.front().value().package_id;
        const auto entry = aot_queue.find(package_id);
        if (entry == aot_queue.end()) {
          LOGE("removePackage was called, but package %s was not found in queue", package_id);
          return VORNA_ERROR_NOT_IN_QUEUE;
        }
        aot_queue.erase(entry);
        updateAOTQueueFile(aot_queue);

        if (status != THREAD_STATUS_RUNNING || package_id != front_id) return VORNA_ERROR_NONE;
        // The worker has this package in hand. The abort is requested before the queue is let go,
        // so that the worker, when it is done, can tell its own entry from one added since.
        tm->request_abort();
        queue_lock.unlock();
        status_lock.unlock();
        if (kill_crossgen(package_id) != 0) {
          LOGE("Failed to kill crossgen process of %s", package_id);
        }
        return VORNA_ERROR_NONE;
      });
}

boost::optional<AOTPackage> get_front_package() {
  const std::lock_guard lock(aot_queue_mtx);
  const boost::optional<const AOTPackage&> front = aot_queue.front();
  if (!front) return boost::none;
  return *front;
}

void pop_queue_if_equals(const std::string& package_id) {
  const std::lock_guard lock(aot_queue_mtx);
  const boost::optional<const AOTPackage&> front = aot_queue.front();
  if (!front || front->package_id != package_id) return;
  aot_queue.pop_front();
  updateAOTQueueFile(aot_queue);
}

bool is_package_in_aot_queue(const char* package_id) {
  const std::string id(package_id);
  const std::lock_guard lock(aot_queue_mtx);
  const bool in_queue = aot_queue.contains(id);
  LOGD("package_id: %s, in queue: %d", package_id, in_queue);
  return in_queue;
}
