// SPDX-License-Identifier: MIT
#include "directories.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "base/files.h"
#include "error.h"

namespace vorna_pkg {
namespace {

using host::UniqueFd;

// Who still works in a directory that is being removed, such as a compile that has not noticed yet,
// can put something into it behind the reader's back.
constexpr int kPasses = 3;

// The names in a directory, or errno.
int ReadNames(int directory, std::vector<std::string>* names) {
  UniqueFd own = host::OpenDirectoryAt(directory, ".");
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(own ? fdopendir(own.get()) : nullptr, &closedir);
  if (!stream) return errno;
  own.Release();
  errno = 0;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names->push_back(name);
  }
  return errno;
}

int RemoveDirectoryOnce(int parent, const std::string& name) {
  const UniqueFd directory = host::OpenDirectoryAt(parent, name);
  if (!directory) return errno;
  std::vector<std::string> names;
  if (const int error = ReadNames(directory.get(), &names)) return error;
  for (const std::string& child : names) {
    if (const int error = RemoveTreeAt(directory.get(), child)) return error;
  }
  return unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 ? 0 : errno;
}

}  // namespace

std::vector<std::string> NamesIn(int directory, const std::string& shown_path) {
  std::vector<std::string> names;
  if (const int error = ReadNames(directory, &names)) throw SystemError(shown_path, error);
  std::sort(names.begin(), names.end());
  return names;
}

UniqueFd MakeDirectoryAt(int parent, const std::string& name, mode_t mode) {
  if (mkdirat(parent, name.c_str(), mode) != 0) return UniqueFd();
  UniqueFd directory = host::OpenDirectoryAt(parent, name);
  if (directory && fchmod(directory.get(), mode) != 0) return UniqueFd();
  return directory;
}

int RemoveTreeAt(int parent, const std::string& name) {
  if (unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT) return 0;
  if (errno != EISDIR && errno != EPERM) return errno;
  int error = ENOTEMPTY;
  for (int pass = 0; pass < kPasses && error == ENOTEMPTY; ++pass) {
    error = RemoveDirectoryOnce(parent, name);
  }
  return error;
}

void SyncDirectory(int directory, const std::string& shown_path) {
  if (fsync(directory) != 0) throw SystemError(shown_path);
}

std::string JoinPath(const std::string& directory, const std::string& name) {
  return directory.empty() ? name : directory + "/" + name;
}

std::pair<std::string, std::string> SplitPath(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {"", path};
  return {path.substr(0, slash), path.substr(slash + 1)};
}

}  // namespace vorna_pkg
