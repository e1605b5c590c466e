// SPDX-License-Identifier: MIT
// The compile service's queue, over the system bus. The service starts by activation. One thread.
#ifndef TOOLS_VORNA_PKG_COMPILE_QUEUE_H
#define TOOLS_VORNA_PKG_COMPILE_QUEUE_H

#include <string>

namespace vorna_pkg {

// Has the service compile the package as it is now: a compile of what was in its place before, even
// one that the service is at, does not count. An empty string, or why the package is not queued.
std::string QueueForCompile(const std::string& package_id);

// For a package that is what it was: only if it has no native images. Fails silently.
void QueueUnlessCompiled(const std::string& package_id);

}  // namespace vorna_pkg

#endif
