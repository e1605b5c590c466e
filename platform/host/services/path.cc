// SPDX-License-Identifier: MIT
#include "platform/path.h"

#include "base/package_registry.h"

const char* platform_path_getenv(int variable) {
  return variable == PLATFORM_PATH_RW_APPS ? host::kReadWriteApplications : nullptr;
}
