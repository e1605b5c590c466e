// SPDX-License-Identifier: MIT
#include "installed_packages.h"

#include <cerrno>
#include <set>

#include "base/files.h"
#include "directories.h"
#include "error.h"
#include "manifest.h"

namespace vorna_pkg {
namespace {

constexpr const char* kAreas[] = {host::kReadWriteApplications, host::kReadOnlyApplications};

Error NotInstalled(const std::string& id) {
  return Error("no package " + id + " is installed: 'vorna-pkg list' shows those that are");
}

}  // namespace

std::vector<InstalledPackage> FindInstalledPackages() {
  std::set<std::string> ids;
  for (const char* area : kAreas) {
    const host::UniqueFd directory = host::OpenDirectory(area);
    if (!directory) {
      if (errno == ENOENT) continue;
      throw SystemError(area);
    }
    for (const std::string& name : NamesIn(directory.get(), area)) {
      if (host::IsValidPackageId(name) && host::OpenDirectoryAt(directory.get(), name)) {
        ids.insert(name);
      }
    }
  }
  std::vector<InstalledPackage> packages;
  packages.reserve(ids.size());
  for (const std::string& id : ids) packages.push_back({id, host::FindPackage(id)});
  return packages;
}

host::Package GetInstalledPackage(const std::string& id) {
  CheckPackageId(id);
  auto found = host::FindPackage(id);
  if (auto* package = std::get_if<host::Package>(&found)) return std::move(*package);
  const auto& failure = std::get<host::LookupFailure>(found);
  if (failure.absent) throw NotInstalled(id);
  throw Error(failure.cause + ": 'vorna-pkg verify " + id + "' tells more");
}

bool IsPreloaded(const host::Package& package) {
  return package.root != host::kReadWriteApplications + ("/" + package.id);
}

const host::Application* MainApplicationOf(const host::Package& package) {
  return package.FindApplication(package.main_application);
}

bool AsksForCompile(const host::Package& package) {
  const host::Application* main = MainApplicationOf(package);
  if (main == nullptr || IsPreloaded(package)) return false;
  for (const auto& [key, value] : main->metadata) {
    if (key == kPreferAot && value == "true") return true;
  }
  return false;
}

host::UniqueFd OpenPackage(const std::string& id) {
  CheckPackageId(id);
  for (const char* area : kAreas) {
    const host::UniqueFd parent = host::OpenDirectory(area);
    host::UniqueFd package = parent ? host::OpenDirectoryAt(parent.get(), id) : host::UniqueFd();
    if (package) return package;
    if (errno != ENOENT) throw SystemError(std::string(area) + "/" + id);
  }
  throw NotInstalled(id);
}

}  // namespace vorna_pkg
