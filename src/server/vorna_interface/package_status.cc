// SPDX-License-Identifier: MIT
#include "server/vorna_interface/package_status.h"

#include <fstream>

#include "common/kx_utils/packages.h"
#include "common/log.h"
#include "common/metadata_utils/metadata_constants.h"
#include "common/vorna_utils/paths.h"

namespace {

constexpr char kPriorityList[] = "/usr/share/aot-daemon/aot_priority_package.txt";

}  // namespace

int check_metadata(const std::string& package_id, AppMetadata& metadata) {
  const std::string app_id = getMainAppIdFromPackageId(package_id);
  if (app_id.empty()) {
    LOGE("error get_mainappid");
    return -1;
  }
  app_info* handle = nullptr;
  if (const int code = app_info_get(app_id.c_str(), &handle); code != 0) {
    LOGE("error get_appinfo (%d)", code);
    return -1;
  }
  AppInfoPtr app(handle);
  const int code = app_info_foreach_metadata(app.get(), metadata_func, &metadata);
  app.reset();
  if (code != 0) {
    LOGE("error app_info_foreach_metadata (%d)", code);
    return -1;
  }
  LOGD("prefer_dotnet_aot:%d, cobA:%d, dpcMorlax:%d, pkgid:%s", metadata.prefer_dotnet_aot,
       metadata.is_coba, metadata.is_dpc_morlaxtv, package_id.c_str());
  return metadata.prefer_dotnet_aot;
}

vorna_error get_package_aot_status(const char* package_id, vorna_package_statuses& status) {
  status = PACKAGE_STATUS_UNKNOWN;
  const std::string root_path = getRootPath(package_id);
  if (root_path.empty()) {
    LOGE("Package %s not found", package_id);
    return VORNA_ERROR_PACKAGE_NOT_FOUND;
  }
  LOGD("root_path: %s", root_path.c_str());
  AppMetadata metadata;
  if (check_metadata(package_id, metadata) == -1) {
    LOGE("failed to get metadata");
    return VORNA_ERROR_METADATA;
  }
  if (!metadata.prefer_dotnet_aot && !metadata.is_coba) {
    LOGI("package_id: %s is not target for AOT", package_id);
    status = PACKAGE_STATUS_NOT_TARGET;
    return VORNA_ERROR_NONE;
  }

  status = PACKAGE_STATUS_AOT_COMPILED;
  const auto examine = [&](const std::string& directory) {
    if (isPackageAOTCompiled(directory) || !hasDllFile(directory)) return;
    LOGI("package_id: %s is not AOT Compiled, path: %s", package_id, directory.c_str());
    status = PACKAGE_STATUS_NOT_AOT_COMPILED;
  };
  if (metadata.prefer_dotnet_aot) examine(root_path + "/bin");
  if (metadata.is_coba) examine(root_path + std::string(metadata_path::kCoBa));
  return VORNA_ERROR_NONE;
}

bool is_package_high_launch_priority(const char* package_id) {
  const std::string id(package_id);
  // Opened for update, though never written: only a list that may be changed counts.
  std::fstream list(kPriorityList, std::ios::in | std::ios::out);
  bool is_priority = false;
  std::string line;
  while (!is_priority && std::getline(list, line)) is_priority = line == id;
  list.close();
  LOGD("read priority file completed, pkg: %s isPriority: %d", package_id, is_priority);
  return is_priority;
}
