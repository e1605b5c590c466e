// SPDX-License-Identifier: MIT
// A Landlock rule set: which files a process may still reach. Made by the parent, any thread.
#ifndef PLATFORM_HOST_IMAGES_LANDLOCK_H
#define PLATFORM_HOST_IMAGES_LANDLOCK_H

#include <string>
#include <vector>

#include "base/unique_fd.h"

namespace host {

// Empty where the kernel has no Landlock. Paths that do not exist are passed over.
UniqueFd MakeLandlockRules(const std::vector<std::string>& readable, const std::string& writable);

}  // namespace host

#endif
