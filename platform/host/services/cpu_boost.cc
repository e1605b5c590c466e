// SPDX-License-Identifier: MIT
#include "platform/cpu_boost.h"

#include <atomic>

#include "base/host_log.h"

namespace {

bool IsValid(pid_t pid, const CpuBoostRequest* request) {
  return pid > 0 && request != nullptr && request->kind == 7 &&
         (request->action == 1 || request->action == 2) &&
         (request->group == 1 || request->group == 2);
}

}  // namespace

int cpu_boost_pid_request(pid_t pid, const CpuBoostRequest* request) {
  if (!IsValid(pid, request)) return -1;
  static std::atomic_flag told = ATOMIC_FLAG_INIT;
  if (!told.test_and_set()) {
    HOST_LOG(INFO, "Scheduling groups are not available on this machine; priorities apply alone");
  }
  return -1;
}
