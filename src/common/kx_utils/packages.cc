// SPDX-License-Identifier: MIT
#include "common/kx_utils/packages.h"

#include "common/log.h"
#include "platform/path.h"

namespace {

struct PackageInfoDestroy {
  void operator()(package_info* package) const { package_info_destroy(package); }
};
using PackageInfoPtr = std::unique_ptr<package_info, PackageInfoDestroy>;

// Opens a package; the platform's result goes to `code`, 0 with a handle.
PackageInfoPtr open_package(const std::string& package_id, int& code) {
  package_info* handle = nullptr;
  code = package_info_get(package_id.c_str(), &handle);
  return PackageInfoPtr(code == 0 ? handle : nullptr);
}

}  // namespace

std::string getRootPath(const std::string& package_id) {
  int code = 0;
  const PackageInfoPtr package = open_package(package_id, code);
  const char* path = nullptr;
  if (!package || package_info_get_root_path(package.get(), &path) != 0 || path == nullptr) {
    return {};
  }
  return path;
}

std::string getMainAppIdFromPackageId(const std::string& package_id) {
  int code = 0;
  const PackageInfoPtr package = open_package(package_id, code);
  if (code != 0) {
    LOGE("error get_pkginfo (%d)", code);
    return {};
  }
  const char* app_id = nullptr;
  code = package_info_get_main_app_id(package.get(), &app_id);
  if (code != 0 || app_id == nullptr) {
    LOGE("error get_mainappid (%d)", code);
    return {};
  }
  return app_id;
}

bool isRWInstalledApp(const std::string& package_id) {
  const std::string root_path = getRootPath(package_id);
  const char* const rw_apps = platform_path_getenv(PLATFORM_PATH_RW_APPS);
  if (rw_apps == nullptr || root_path.find(rw_apps) == std::string::npos) return false;
  LOGI("It is a RWInstalled App");
  return true;
}
