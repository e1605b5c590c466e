// SPDX-License-Identifier: MIT
#include "server/vorna_interface/queue_worker.h"

#include <array>
#include <filesystem>
#include <mutex>
#include <string>

#include "common/kx_utils/packages.h"
#include "common/log.h"
#include "common/vorna_utils/paths.h"
#include "platform/native_image.h"
#include "server/compile_finished_signal/compile_finished_signal.h"
#include "server/globals/globals.h"
#include "server/tarrow_watchdog_notifier/tarrow_watchdog_notifier.h"
#include "server/vorna_interface/aot.h"
#include "server/vorna_interface/cpu_load.h"
#include "server/vorna_interface/label_check.h"
#include "server/vorna_interface/package_status.h"
#include "server/vorna_interface/queue_operations.h"

namespace {

// Operators know the worker's lines by this function name.
constexpr char kAotQueueProcess[] = "aot_queue_process";

class QueueWorker {
 public:
  explicit QueueWorker(server::TarrowWatchdogNotifier& notifier) : notifier_(notifier) {}

  // Returns the status that the worker leaves behind; the native-image library is initialised.
  vorna_thread_statuses compile_queue();

 private:
  enum class Verdict { kGoOn, kNextPackage, kDropPackage, kEnd, kStorageInsufficient };
  using Step = Verdict (QueueWorker::*)();

  Verdict work_on_front_package();
  Verdict check_interrupt();
  Verdict report_interrupt() const;

  Verdict find_root_path();
  Verdict read_metadata();
  Verdict require_aot_target();
  Verdict require_read_write_install();
  Verdict require_storage();
  Verdict remove_old_native_images();
  Verdict compile();

  void watch_recovery_files() const;
  void finish_entry_and_check_interrupt(vorna_error result);

  // In this order, with an interrupt check before each.
  static constexpr std::array<Step, 7> kSteps = {
      &QueueWorker::find_root_path,
      &QueueWorker::read_metadata,
      &QueueWorker::require_aot_target,
      &QueueWorker::require_read_write_install,
      &QueueWorker::require_storage,
      &QueueWorker::remove_old_native_images,
      &QueueWorker::compile,
  };

  server::TarrowWatchdogNotifier& notifier_;
  std::string package_id_;
  std::string root_path_;
  AppMetadata metadata_;
  bool halted_ = false;
  bool aborted_ = false;
};

vorna_thread_statuses QueueWorker::compile_queue() {
  while (const boost::optional<AOTPackage> front = get_front_package()) {
    package_id_ = front->package_id;
    metadata_ = {};
    switch (work_on_front_package()) {
      case Verdict::kGoOn:
      case Verdict::kNextPackage:
        break;
      case Verdict::kDropPackage:
        pop_queue_if_equals(package_id_);
        break;
      case Verdict::kEnd:
        return THREAD_STATUS_IDLE;
      case Verdict::kStorageInsufficient:
        pop_queue_if_equals(package_id_);
        LOGE_AS(kAotQueueProcess, "Insufficient storage, aot_queue_process stopped");
        return THREAD_STATUS_STORAGE_INSUFFICIENT;
    }
  }
  return THREAD_STATUS_IDLE;
}

QueueWorker::Verdict QueueWorker::work_on_front_package() {
  if (is_cpu_utilization_high()) {
    LOGE_AS(kAotQueueProcess, "Quitting worker thread");
    return Verdict::kEnd;
  }
  for (const Step step : kSteps) {
    if (const Verdict verdict = check_interrupt(); verdict != Verdict::kGoOn) return verdict;
    if (const Verdict verdict = (this->*step)(); verdict != Verdict::kGoOn) return verdict;
  }
  return Verdict::kGoOn;
}

// After an abort nothing is dropped: the package has left the queue already, or is to be taken
// again.
QueueWorker::Verdict QueueWorker::check_interrupt() {
  halted_ = aborted_ = false;
  tm->wait_on_pause_and_check_interrupt(halted_, aborted_, &notifier_);
  if (aborted_ && !halted_) LOGI_AS(kAotQueueProcess, "Process aborted");
  return report_interrupt();
}

QueueWorker::Verdict QueueWorker::report_interrupt() const {
  if (halted_) {
    LOGI_AS(kAotQueueProcess, "Process halted");
    return Verdict::kEnd;
  }
  return aborted_ ? Verdict::kNextPackage : Verdict::kGoOn;
}

QueueWorker::Verdict QueueWorker::find_root_path() {
  root_path_ = getRootPath(package_id_);
  if (!root_path_.empty()) return Verdict::kGoOn;
  LOGE_AS(kAotQueueProcess, "Package %s not found", package_id_.c_str());
  return Verdict::kDropPackage;
}

QueueWorker::Verdict QueueWorker::read_metadata() {
  if (check_metadata(package_id_, metadata_) != -1) return Verdict::kGoOn;
  LOGE_AS(kAotQueueProcess, "Error in retrieving metadata for package %s", package_id_.c_str());
  return Verdict::kDropPackage;
}

QueueWorker::Verdict QueueWorker::require_aot_target() {
  if (metadata_.prefer_dotnet_aot) return Verdict::kGoOn;
  LOGE_AS(kAotQueueProcess, "Package %s does not have prefer_dotnet_aot with value true",
          package_id_.c_str());
  return Verdict::kDropPackage;
}

QueueWorker::Verdict QueueWorker::require_read_write_install() {
  if (isRWInstalledApp(package_id_)) return Verdict::kGoOn;
  LOGI_AS(kAotQueueProcess, "Package is RO App, Skipping AOT");
  return Verdict::kDropPackage;
}

QueueWorker::Verdict QueueWorker::require_storage() {
  if (isStorageSufficient(root_path_)) return Verdict::kGoOn;
  LOGE_AS(kAotQueueProcess, "Insufficient storage, package %s not AOT'd", package_id_.c_str());
  return Verdict::kStorageInsufficient;
}

QueueWorker::Verdict QueueWorker::remove_old_native_images() {
  if (!isPackageAOTCompiled(root_path_)) return Verdict::kGoOn;
  LOGI_AS(kAotQueueProcess, "AOT'd, removing NI");
  if (removeNativeImagesUnderPackageRoot(package_id_.c_str()) == 0) return Verdict::kGoOn;
  LOGE_AS(kAotQueueProcess, "Failed to remove dlls for given package [%s], remove NI failed.",
          package_id_.c_str());
  return Verdict::kDropPackage;
}

QueueWorker::Verdict QueueWorker::compile() {
  LOGI_AS(kAotQueueProcess, "Start AOT Compile : %s", package_id_.c_str());
  watch_recovery_files();
  const vorna_error result = aot(package_id_, metadata_);
  notifier_.notify();
  emit_aot_compile_finished(package_id_);
  finish_entry_and_check_interrupt(result);
  watcher->unwatch_package_id(package_id_);

  if (aborted_) {
    if (result == VORNA_ERROR_NONE) {
      LOGW_AS(kAotQueueProcess,
              "Abort request received, but package has already been AOT compiled.");
    }
    LOGI_AS(kAotQueueProcess, "Process aborted");
  } else if (result == VORNA_ERROR_COMPILER_KILLED) {
    add_package_to_aot_queue(package_id_.c_str());
  }
  if (result == VORNA_ERROR_NONE) check_label_of_ni_dir(root_path_, package_id_);
  return report_interrupt();
}

// A directory that cannot be read must not end the daemon: it would meet the same package at the
// front again after its next start, and the next.
void QueueWorker::watch_recovery_files() const {
  try {
    watcher->watch_package_id(package_id_);
  } catch (const std::filesystem::filesystem_error& error) {
    LOGD_AS(kAotQueueProcess, "Unable to parse recovery file (%s): %s", error.path1().c_str(),
            error.what());
  }
}

// Takes the entry that was compiled out of the queue. An abort says that this entry has left the
// queue already: what stands at the front under the same id was added since, and stays. Both locks
// together make that one step: a removal comes before it, with its abort, or finds nothing.
void QueueWorker::finish_entry_and_check_interrupt(vorna_error result) {
  halted_ = aborted_ = false;
  const std::lock_guard queue_lock(aot_queue_mtx);
  tm->check_interrupt(tm->lock_interrupt(), halted_, aborted_);
  const boost::optional<const AOTPackage&> front = aot_queue.front();
  if (aborted_ || !front || front->package_id != package_id_) return;
  aot_queue.pop_front();
  // A package whose compiler was killed is added again at once. Until then the file keeps it where
  // it was, so that it cannot be lost in between.
  if (result != VORNA_ERROR_COMPILER_KILLED) updateAOTQueueFile(aot_queue);
}

}  // namespace

void aot_queue_process() {
  LOGI("queue process started");
  server::TarrowWatchdogNotifier notifier(
      [manager = tm](server::TarrowWatchdogNotifier*) { manager->wake_all_waiters(); });
  if (initNativeImageCommon() != 0) {
    LOGE("initializeNICommon fail, AOT process stopped");
    tm->clear_interrupt_and_set_thread_status(THREAD_STATUS_IDLE);
    return;
  }
  const vorna_thread_statuses status = QueueWorker(notifier).compile_queue();
  finalizeNativeImageCommon();
  tm->clear_interrupt_and_set_thread_status(status);
  if (status == THREAD_STATUS_IDLE) LOGI("queue process completed");
}
