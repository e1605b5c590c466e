// SPDX-License-Identifier: MIT
// Installed packages: a directory named by the package's id in one of the application areas, with a
// manifest package.ini in it. Nothing is kept between calls, so that a look-up always sees what is
// installed now. Any thread. Manifests come from strangers.
#ifndef PLATFORM_HOST_BASE_PACKAGE_REGISTRY_H
#define PLATFORM_HOST_BASE_PACKAGE_REGISTRY_H

#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace host {

inline constexpr char kReadWriteApplications[] = "/opt/usr/apps";
inline constexpr char kReadOnlyApplications[] = "/usr/apps";

struct Application {
  std::string id;
  std::string type;        // empty: the manifest does not say
  std::string executable;  // relative to the package's root; empty: the manifest does not say
  std::vector<std::pair<std::string, std::string>> metadata;
};

struct Package {
  std::string id;
  std::string root;
  std::string main_application;  // empty: the manifest does not say
  std::vector<Application> applications;

  const Application* FindApplication(std::string_view application_id) const;
};

struct LookupFailure {
  bool absent;        // there is no such package, rather than a broken one
  std::string cause;  // names the file
};

// 1 to 128 characters of A-Z a-z 0-9 . _ -, not beginning with a dot.
bool IsValidPackageId(std::string_view id);

// Opens and reads one manifest.
std::variant<Package, LookupFailure> FindPackage(const std::string& id);

// The package whose manifest lists the application. Packages of whose id the application's is an
// extension are tried first; only then every package is looked at.
std::variant<Package, LookupFailure> FindPackageOfApplication(const std::string& application_id);

}  // namespace host

#endif
