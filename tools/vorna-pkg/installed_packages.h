// SPDX-License-Identifier: MIT
// The packages of both application areas as they are now, read without a lock: every package is
// whole at every instant. Stateless; any thread.
#ifndef TOOLS_VORNA_PKG_INSTALLED_PACKAGES_H
#define TOOLS_VORNA_PKG_INSTALLED_PACKAGES_H

#include <string>
#include <variant>
#include <vector>

#include "base/package_registry.h"
#include "base/unique_fd.h"

namespace vorna_pkg {

struct InstalledPackage {
  std::string id;
  std::variant<host::Package, host::LookupFailure> package;  // a failure: it is broken
};

// By id. A package of the read-write area hides one of the same id in the other.
std::vector<InstalledPackage> FindInstalledPackages();

// Throws Error for a package that is not installed or cannot be read.
host::Package GetInstalledPackage(const std::string& id);

bool IsPreloaded(const host::Package& package);
const host::Application* MainApplicationOf(const host::Package& package);
bool AsksForCompile(const host::Package& package);

// The directory of an installed package, whatever state the package is in. Throws Error.
host::UniqueFd OpenPackage(const std::string& id);

}  // namespace vorna_pkg

#endif
