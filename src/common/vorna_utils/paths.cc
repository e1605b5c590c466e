// SPDX-License-Identifier: MIT
#include "common/vorna_utils/paths.h"

#include <dirent.h>
#include <sys/statvfs.h>

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "common/log.h"
#include "platform/native_image.h"

namespace {

constexpr int kScanDepth = 2;
constexpr char kAssemblySuffix[] = ".dll";
constexpr char kNativeImageSuffix[] = ".ni.dll";

struct DirectoryClose {
  void operator()(DIR* directory) const { closedir(directory); }
};
using DirectoryPtr = std::unique_ptr<DIR, DirectoryClose>;

bool is_dot_entry(std::string_view name) {
  return name == "." || name == "..";
}

}  // namespace

std::string concatPath(const std::string& a, const std::string& b) {
  std::string path = a;
  if (path.back() != '/') path.push_back('/');
  return path.append(b);
}

bool isStorageSufficient(const std::string& path) {
  struct statvfs status = {};
  if (statvfs(path.c_str(), &status) != 0) {
    LOGE("Failed to stat path %s", path.c_str());
    return false;
  }
  return std::uint64_t{status.f_bsize} * std::uint64_t{status.f_bavail} >= kRequiredStorage;
}

bool endsWith(const std::string& text, const std::string& suffix) {
  return std::string_view(text).ends_with(suffix);
}

void scanFilesInDirectory(const std::string& directory, const FileCallback& callback, int depth) {
  const DirectoryPtr stream(opendir(directory.c_str()));
  if (!stream) return;

  std::vector<std::string> subdirectories;
  while (const dirent* const entry = readdir(stream.get())) {
    const std::string path = concatPath(directory, entry->d_name);
    if (entry->d_type == DT_REG || entry->d_type == DT_LNK) {
      callback(path, entry->d_name);
    } else if (entry->d_type == DT_DIR && depth != 0 && !is_dot_entry(entry->d_name)) {
      subdirectories.push_back(path);
    }
  }
  for (const std::string& subdirectory : subdirectories) {
    scanFilesInDirectory(subdirectory, callback, depth - 1);
  }
}

bool isPackageAOTCompiled(std::string root_path) {
  bool has_native_image = false;
  bool is_ready_to_run = false;
  bool ready_to_run_checked = false;
  scanFilesInDirectory(
      root_path,
      [&](const std::string& path, const char*) {
        if (has_native_image || is_ready_to_run) return;
        if (endsWith(path, kNativeImageSuffix)) {
          has_native_image = true;
        } else if (!ready_to_run_checked && endsWith(path, kAssemblySuffix)) {
          LOGD("r2r check %s ,%d", path.c_str(), isReadyToRunImage(path.c_str()));
          ready_to_run_checked = true;
          is_ready_to_run = isReadyToRunImage(path.c_str());
        }
      },
      kScanDepth);
  return has_native_image || is_ready_to_run;
}

bool hasDllFile(const std::string& directory) {
  bool found = false;
  scanFilesInDirectory(
      directory,
      [&found](const std::string& path, const char*) {
        if (!found) found = endsWith(path, kAssemblySuffix) && !endsWith(path, kNativeImageSuffix);
      },
      kScanDepth);
  return found;
}
