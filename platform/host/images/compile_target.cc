// SPDX-License-Identifier: MIT
#include "images/compile_target.h"

#include <algorithm>

#include "base/failure.h"
#include "base/files.h"

namespace host {
namespace {

constexpr const char* kAreas[] = {kReadWriteApplications, kReadOnlyApplications};

// The area that the path lies in, or null; the rest of the path is left in *below.
const char* AreaOf(const std::string& path, std::string* below) {
  for (const char* area : kAreas) {
    const std::string prefix = std::string(area) + "/";
    if (path.compare(0, prefix.size(), prefix) != 0) continue;
    *below = path.substr(prefix.size());
    return area;
  }
  return nullptr;
}

std::vector<std::string> Components(const std::string& path) {
  std::vector<std::string> components;
  for (size_t begin = 0; begin < path.size();) {
    const size_t end = std::min(path.find('/', begin), path.size());
    const std::string component = path.substr(begin, end - begin);
    if (!component.empty() && component != ".") components.push_back(component);
    begin = end + 1;
  }
  return components;
}

std::string Normalized(const std::string& path) {
  if (path.empty() || path[0] != '/') {
    throw Failure(NI_ERROR_INVALID_ARGUMENT, "\"" + path + "\" is not a full path");
  }
  std::string normalized;
  for (const std::string& component : Components(path)) {
    if (component == "..") {
      throw Failure(NI_ERROR_INVALID_ARGUMENT, "\"" + path + "\" leads upwards");
    }
    normalized += "/" + component;
  }
  return normalized.empty() ? "/" : normalized;
}

Package PackageOrThrow(const std::string& id) {
  auto found = FindPackage(id);
  if (const auto* failure = std::get_if<LookupFailure>(&found)) {
    throw Failure(NI_ERROR_UNKNOWN_PACKAGE, failure->cause);
  }
  return std::get<Package>(std::move(found));
}

std::vector<std::string> PlacesFor(const Package& package) {
  return {package.root.substr(0, package.root.rfind('/')), package.root};
}

}  // namespace

CompileTarget CompileTarget::ForPackage(const std::string& package_id) {
  CompileTarget target;
  target.package = PackageOrThrow(package_id);
  target.directories = {target.package->root + "/bin"};
  target.places = PlacesFor(*target.package);
  return target;
}

CompileTarget CompileTarget::ForDirectories(const std::string& list) {
  CompileTarget target;
  for (size_t begin = 0; begin <= list.size();) {
    const size_t end = std::min(list.find(':', begin), list.size());
    target.directories.push_back(Normalized(list.substr(begin, end - begin)));
    begin = end + 1;
  }
  std::string below;
  if (AreaOf(target.directories.front(), &below) == nullptr) {
    target.places = {target.directories.front()};
    return target;
  }
  target.package = PackageOrThrow(below.substr(0, below.find('/')));
  target.places = PlacesFor(*target.package);
  for (const std::string& directory : target.directories) {
    if ((directory + "/").compare(0, target.package->root.size() + 1, target.package->root + "/")) {
      throw Failure(NI_ERROR_INVALID_ARGUMENT,
                    "\"" + directory + "\" does not lie in the package " + target.package->id);
    }
  }
  return target;
}

UniqueFd OpenTargetDirectory(const std::string& path) {
  std::string below;
  const char* area = AreaOf(path, &below);
  if (area == nullptr) return OpenDirectory(path);
  const UniqueFd area_directory = OpenDirectory(area);
  return area_directory ? OpenDirectoryBeneath(area_directory.get(), below) : UniqueFd();
}

}  // namespace host
