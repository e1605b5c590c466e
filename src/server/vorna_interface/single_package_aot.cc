// SPDX-License-Identifier: MIT
#include "server/vorna_interface/single_package_aot.h"

#include <chrono>
#include <mutex>
#include <optional>

#include "common/kx_utils/packages.h"
#include "common/log.h"
#include "common/vorna_utils/paths.h"
#include "platform/native_image.h"
#include "server/compile_finished_signal/compile_finished_signal.h"
#include "server/globals/globals.h"
#include "server/vorna_interface/aot.h"
#include "server/vorna_interface/compiler_process.h"
#include "server/vorna_interface/cpu_load.h"
#include "server/vorna_interface/package_status.h"
#include "server/vorna_interface/queue_operations.h"

namespace {

constexpr char kPerformPackageAot[] = "perform_package_aot";
// A worker that goes on for so long has started its compiler after the search for it.
constexpr std::chrono::seconds kPatienceWithWorker(1);

void kill_compiler_of(const std::string& package_id) {
  if (kill_crossgen(package_id.c_str()) == 0) return;
  LOGE_AS("terminate_aot_queue_process_thread", "Failed to kill crossgen process of %s",
          package_id.c_str());
}

// Asks the worker to end, and returns the package whose compiler is to be killed for it. Needs the
// lock on the worker's status, under which the worker cannot end in between.
boost::optional<AOTPackage> request_halt_of_worker() {
  const std::lock_guard lock(aot_queue_mtx);
  tm->request_halt();
  const boost::optional<const AOTPackage&> front = aot_queue.front();
  if (!front) return boost::none;
  return *front;
}

// The status is not locked while compilers are searched and killed: everybody who asks for it would
// wait, and so would a worker on its way into the compile, past the kill.
void take_compiler_over(vorna_thread_statuses status, std::unique_lock<std::mutex> lock) {
  server::ThreadManager::AwaitedStatus running(*tm, THREAD_STATUS_RUNNING);
  if (status == THREAD_STATUS_RUNNING) {
    const boost::optional<AOTPackage> front = request_halt_of_worker();
    lock.unlock();
    if (front) kill_compiler_of(front->package_id);
    lock.lock();
  }
  while (!running.wait_until_left(lock, kPatienceWithWorker)) {
    lock.unlock();
    if (const auto package_id = compile_in_progress.package_id()) kill_compiler_of(*package_id);
    lock.lock();
  }
  tm->set_thread_status(THREAD_STATUS_SINGLE_PACKAGE_AOT, lock);
}

class RunningGroup {
 public:
  RunningGroup() {
    end_boost_by_pid();
    start_boost_to_running_by_pid();
  }
  ~RunningGroup() {
    end_boost_from_running_by_pid();
    start_boost_by_pid();
  }
  RunningGroup(const RunningGroup&) = delete;
  RunningGroup& operator=(const RunningGroup&) = delete;
};

// Readies a package that may be compiled; the result that ends the request, if it must end here.
std::optional<vorna_error> prepare_package(const std::string& package_id,
                                           const std::string& root_path) {
  if (!isStorageSufficient(root_path)) {
    LOGE_AS(kPerformPackageAot, "Insufficient storage, package %s not AOT'd", package_id.c_str());
    return VORNA_ERROR_INSUFFICIENT_STORAGE;
  }
  if (!isPackageAOTCompiled(root_path)) return std::nullopt;
  LOGI_AS(kPerformPackageAot, "AOT'd, removing NI");
  if (removeNativeImagesUnderPackageRoot(package_id.c_str()) == 0) return std::nullopt;
  LOGE_AS(kPerformPackageAot,
          "Failed to remove dlls for given package [%s], remove NI failed. Skipping AOT",
          package_id.c_str());
  return VORNA_ERROR_NI_LIBRARY;
}

vorna_error compile_package(const std::string& package_id) {
  const std::string root_path = getRootPath(package_id);
  if (root_path.empty()) {
    LOGE_AS(kPerformPackageAot, "Package %s not found, fail to AOT", package_id.c_str());
    return VORNA_ERROR_PACKAGE_NOT_FOUND;
  }
  AppMetadata metadata;
  if (check_metadata(package_id, metadata) == -1) {
    LOGE_AS(kPerformPackageAot, "Error in retrieving metadata for package %s", package_id.c_str());
    return VORNA_ERROR_METADATA;
  }
  if (!metadata.prefer_dotnet_aot) {
    LOGE_AS(kPerformPackageAot, "Package %s does not have prefer_dotnet_aot with value true",
            package_id.c_str());
    return VORNA_ERROR_NOT_AOT_TARGET;
  }
  if (!isRWInstalledApp(package_id)) {
    LOGI_AS(kPerformPackageAot, "Package is RO App, Skipping AOT");
    return VORNA_ERROR_NONE;
  }
  if (initNativeImageCommon() != 0) {
    LOGE_AS(kPerformPackageAot, "initializeNICommon fail, package not AOT'd");
    return VORNA_ERROR_NI_LIBRARY;
  }
  const std::optional<vorna_error> refusal = prepare_package(package_id, root_path);
  const vorna_error result = refusal ? *refusal : aot(package_id, metadata);
  finalizeNativeImageCommon();
  if (refusal) return result;
  if (result == VORNA_ERROR_NONE) emit_aot_compile_finished(package_id);
  LOGI_AS(kPerformPackageAot, "perform AOT for package_id: %s complete", package_id.c_str());
  return result;
}

}  // namespace

vorna_error perform_single_package_aot(const std::string& package_id) {
  tm->run_with_thread_status(take_compiler_over);
  vorna_error result = VORNA_ERROR_COMPILER_KILLED;
  if (!is_ending) {
    const RunningGroup running_group;
    LOGI_AS(kPerformPackageAot, "package_id: %s", package_id.c_str());
    result = compile_package(package_id);
  }
  if (result == VORNA_ERROR_NONE) remove_package_from_aot_queue(package_id.c_str());
  tm->set_thread_status(THREAD_STATUS_IDLE);
  return result;
}
