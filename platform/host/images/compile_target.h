// SPDX-License-Identifier: MIT
// What one call compiles or cleans: directories, and the package that they belong to. Plain data.
// Paths are looked up again for each use, for packages come and go while compilers run.
#ifndef PLATFORM_HOST_IMAGES_COMPILE_TARGET_H
#define PLATFORM_HOST_IMAGES_COMPILE_TARGET_H

#include <optional>
#include <string>
#include <vector>

#include "base/package_registry.h"
#include "base/unique_fd.h"

namespace host {

struct CompileTarget {
  std::optional<Package> package;        // nothing: directories outside of the application areas
  std::vector<std::string> directories;  // full paths, without "." and double slashes
  std::vector<std::string> places;       // where to stage, the best first

  // <root>/bin. Throws Failure (NI_ERROR_UNKNOWN_PACKAGE).
  static CompileTarget ForPackage(const std::string& package_id);
  // A list joined with ':'. Throws Failure (NI_ERROR_INVALID_ARGUMENT).
  static CompileTarget ForDirectories(const std::string& list);

  // For the lock.
  const std::string& name() const { return package ? package->id : directories.front(); }
};

// Opens a directory by its full path; below an application area no link is followed. On failure
// errno tells.
UniqueFd OpenTargetDirectory(const std::string& path);

}  // namespace host

#endif
