// SPDX-License-Identifier: MIT
#include "package_facts.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>

#include "base/text.h"
#include "common/kx_utils/packages.h"
#include "common/metadata_utils/metadata_constants.h"
#include "common/vorna_utils/aot_queue.h"
#include "common/vorna_utils/paths.h"
#include "platform/path.h"
#include "platform_complaints.h"

namespace vornactl {
namespace {

constexpr char kPriorityList[] = "/usr/share/aot-daemon/aot_priority_package.txt";
constexpr unsigned long long kMiB = 1 << 20;

std::optional<AppMetadata> ReadMetadata(const std::string& id) {
  const std::string main_application = getMainAppIdFromPackageId(id);
  app_info* handle = nullptr;
  if (main_application.empty() || app_info_get(main_application.c_str(), &handle) != 0) {
    return std::nullopt;
  }
  const AppInfoPtr application(handle);
  AppMetadata metadata;
  if (app_info_foreach_metadata(application.get(), metadata_func, &metadata) != 0) {
    return std::nullopt;
  }
  return metadata;
}

std::string FreeStorageText(const std::string& path) {
  struct statvfs status = {};
  if (statvfs(path.c_str(), &status) != 0) return path + ": " + host::ErrorText(errno);
  const unsigned long long free = 1ULL * status.f_bsize * status.f_bavail;
  return host::Format("%llu MiB are free at %s, %llu MiB are needed", free / kMiB, path.c_str(),
                      kRequiredStorage / kMiB);
}

// A file that does not exist has no lines: the daemon makes it when there is something to keep.
std::optional<std::vector<std::string>> LinesOf(const char* path) {
  errno = 0;
  std::ifstream file(path);
  std::vector<std::string> lines;
  if (!file) return errno == ENOENT ? std::optional(lines) : std::nullopt;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

}  // namespace

PackageFacts FactsOf(const std::string& id) {
  PackageFacts facts;
  facts.id = id;
  TakePlatformComplaint();
  facts.root = getRootPath(id);
  if (facts.is_installed()) {
    facts.metadata = ReadMetadata(id);
    facts.is_read_write = isRWInstalledApp(id);
  }
  facts.cause = TakePlatformComplaint();
  return facts;
}

bool IsCompiled(const PackageFacts& facts) {
  if (!facts.metadata) return false;
  const auto is_compiled = [&](const std::string& directory) {
    return isPackageAOTCompiled(directory) || !hasDllFile(directory);
  };
  const bool coba = facts.metadata->is_coba;
  if (!facts.metadata->prefer_dotnet_aot && !coba) return false;
  return (!facts.is_target() || is_compiled(facts.root + "/bin")) &&
         (!coba || is_compiled(facts.root + std::string(metadata_path::kCoBa)));
}

std::optional<Reason> ReasonToSkip(const PackageFacts& facts) {
  const std::string cause = facts.cause.empty() ? "" : ": " + facts.cause;
  if (!facts.is_installed()) return Reason{"not-installed", "no such package is installed" + cause};
  if (!facts.metadata) return Reason{"metadata", "its metadata cannot be read" + cause};
  if (!facts.is_target()) {
    return Reason{"not-target",
                  "it does not ask to be compiled: its main application lacks the "
                  "metadata " +
                      std::string(metadata_key::kPreferDotnetAot) + "=true"};
  }
  if (!facts.is_read_write) {
    return Reason{"read-only", "it is installed read-only, in " + facts.root +
                                   ": only packages in " +
                                   platform_path_getenv(PLATFORM_PATH_RW_APPS) + " are compiled"};
  }
  if (!isStorageSufficient(facts.root)) {
    return Reason{"storage", "too little storage: " + FreeStorageText(facts.root)};
  }
  return std::nullopt;
}

std::vector<std::string> CompiledDirectories(const PackageFacts& facts) {
  std::vector<std::string> directories = {facts.root + "/bin"};
  const std::string shared = getPackageCobaDpcPaths(facts.root, *facts.metadata);
  for (size_t begin = 0; begin < shared.size();) {
    const size_t end = std::min(shared.find(kPathDelimiter, begin), shared.size());
    directories.push_back(shared.substr(begin, end - begin));
    begin = end + 1;
  }
  return directories;
}

std::vector<std::string> InstalledPackages() {
  std::vector<std::string> ids;
  std::error_code error;
  const std::filesystem::directory_iterator area(platform_path_getenv(PLATFORM_PATH_RW_APPS),
                                                 error);
  for (const auto& entry : area) {
    const std::string id = entry.path().filename();
    if (id[0] != '.' && entry.is_directory(error)) ids.push_back(id);
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

std::optional<std::vector<std::string>> QueueOnDisk() {
  return LinesOf(kQueueFile);
}

std::optional<bool> IsInPriorityList(const std::string& id) {
  const auto lines = LinesOf(kPriorityList);
  if (!lines) return std::nullopt;
  return std::find(lines->begin(), lines->end(), id) != lines->end();
}

}  // namespace vornactl
