// SPDX-License-Identifier: MIT
// The directory that a package is installed from, as one scan of it saw it. Its owner may be
// hostile and may change it at any time: only what the scan lists is copied, and looked at again
// then. One thread.
#ifndef TOOLS_VORNA_PKG_SOURCE_TREE_H
#define TOOLS_VORNA_PKG_SOURCE_TREE_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/unique_fd.h"

namespace vorna_pkg {

inline constexpr char kBinPrefix[] = "bin/";
inline constexpr char kRuntimeConfigSuffix[] = ".runtimeconfig.json";

struct SourceEntry {
  std::string from;  // below the source directory
  std::string to;    // below the package's root
  mode_t type;       // S_IFDIR, S_IFREG or S_IFLNK
};

class SourceTree {
 public:
  // Throws Error for what cannot be part of a package: devices, FIFOs, sockets, files that run as
  // somebody else, links that lead out of it, names that are no text.
  explicit SourceTree(const std::string& path);

  const std::string& path() const { return path_; }
  int directory() const { return directory_.get(); }
  // A directory before what is in it.
  const std::vector<SourceEntry>& entries() const { return entries_; }
  const std::optional<std::string>& manifest() const { return manifest_; }
  std::string manifest_path() const;
  size_t files() const { return files_; }
  uint64_t bytes() const { return bytes_; }

  bool HasFile(const std::string& path_in_package) const;
  std::string SourceOf(const std::string& path_in_package) const;
  // The simple names X for which there is bin/X.runtimeconfig.json.
  std::vector<std::string> RuntimeConfigs() const;

 private:
  void Scan(int directory, const std::string& path, int depth);
  void AddEntry(int directory, const std::string& path, int depth);
  void CheckFile(const std::string& path, mode_t mode) const;

  std::string path_;
  host::UniqueFd directory_;
  std::string prefix_;  // of the package's paths: published files go to bin/
  std::optional<std::string> manifest_;
  std::vector<SourceEntry> entries_;
  size_t files_ = 0;
  uint64_t bytes_ = 0;
};

// Throws Error unless the link at a path below the directory leads to something below it.
void CheckLink(int directory, const std::string& path, const std::string& shown_path);

}  // namespace vorna_pkg

#endif
