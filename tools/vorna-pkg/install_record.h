// SPDX-License-Identifier: MIT
// What vorna-pkg installed, kept in the package itself, so that `vorna-pkg verify` can tell whether
// it is still that. Plain data. A record that is read may be anything.
#ifndef TOOLS_VORNA_PKG_INSTALL_RECORD_H
#define TOOLS_VORNA_PKG_INSTALL_RECORD_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace vorna_pkg {

inline constexpr char kInstallRecordName[] = ".installed.json";
inline constexpr size_t kLargestInstallRecord = 64 << 20;

struct InstalledFile {
  uint64_t size = 0;
  std::string sha256;
};

struct InstallRecord {
  std::map<std::string, InstalledFile> files;  // by the path below the package's root
  std::map<std::string, std::string> links;    // with their targets

  std::string Serialize() const;
  // Nothing for what this program did not write.
  static std::optional<InstallRecord> Parse(const std::string& text);
};

}  // namespace vorna_pkg

#endif
