// SPDX-License-Identifier: MIT
// Directories by descriptor: nothing here follows a symbolic link below the descriptor it is given.
// Stateless; any thread.
#ifndef TOOLS_VORNA_PKG_DIRECTORIES_H
#define TOOLS_VORNA_PKG_DIRECTORIES_H

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/unique_fd.h"

namespace vorna_pkg {

inline constexpr mode_t kDirectoryMode = 0755;

// The names in a directory, sorted, without "." and "..". Throws Error naming `shown_path`.
std::vector<std::string> NamesIn(int directory, const std::string& shown_path);

// Makes a directory whose mode does not depend on the umask. A failure leaves errno.
host::UniqueFd MakeDirectoryAt(int parent, const std::string& name, mode_t mode);

// Removes whatever has that name, directories with all that is in them. 0 or errno.
int RemoveTreeAt(int parent, const std::string& name);

// fsync; throws Error naming `shown_path`.
void SyncDirectory(int directory, const std::string& shown_path);

// {"a/b", "c"} to "a/b/c", {"", "c"} to "c"; and back.
std::string JoinPath(const std::string& directory, const std::string& name);
std::pair<std::string, std::string> SplitPath(const std::string& path);

}  // namespace vorna_pkg

#endif
