// SPDX-License-Identifier: MIT
// What is to be installed: the files, and the manifest with everything derived that the person did
// not give. One thread.
#ifndef TOOLS_VORNA_PKG_PACKAGE_PLAN_H
#define TOOLS_VORNA_PKG_PACKAGE_PLAN_H

#include <string>
#include <utility>
#include <vector>

#include "manifest.h"
#include "source_tree.h"

namespace vorna_pkg {

struct InstallOptions {
  std::string directory;
  std::string id;             // empty: derived, as are the next two
  std::string main_assembly;  // below the published directory
  std::string type;
  std::vector<std::pair<std::string, std::string>> metadata;
  bool no_compile = false;
};

struct PackagePlan {
  std::string id;
  SourceTree source;
  std::string manifest;
};

// Looks at the directory and, for an update, at what is installed. Throws Error.
PackagePlan MakePlan(const InstallOptions& options, bool is_update);

}  // namespace vorna_pkg

#endif
