// SPDX-License-Identifier: MIT
// What can be known about a package without asking the daemon, by the same rules: from the platform
// library and from files. Nothing is kept between calls. One thread.
#ifndef TOOLS_VORNACTL_PACKAGE_FACTS_H
#define TOOLS_VORNACTL_PACKAGE_FACTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/metadata_utils/app_metadata.h"

namespace vornactl {

struct PackageFacts {
  std::string id;
  std::string root;                     // empty: not installed
  std::optional<AppMetadata> metadata;  // nothing: not installed, or cannot be read
  std::string cause;                    // of what is missing, as the platform tells it
  bool is_read_write = false;

  bool is_installed() const { return !root.empty(); }
  // What the daemon compiles.
  bool is_target() const { return metadata && metadata->prefer_dotnet_aot; }
};

PackageFacts FactsOf(const std::string& id);

// Whether native images stand where the daemon looks for them.
bool IsCompiled(const PackageFacts& facts);

// Why the daemon would pass the package over, were it at the front of the queue.
struct Reason {
  std::string code;  // for scripts
  std::string text;
};
std::optional<Reason> ReasonToSkip(const PackageFacts& facts);

// The directories below which the package's assemblies are compiled.
std::vector<std::string> CompiledDirectories(const PackageFacts& facts);

// The ids in the read-write area, sorted.
std::vector<std::string> InstalledPackages();

// What the daemon has left when it does not run, and the system's list of high launch priority.
// Nothing: the file cannot be read.
std::optional<std::vector<std::string>> QueueOnDisk();
std::optional<bool> IsInPriorityList(const std::string& id);

}  // namespace vornactl

#endif
