// SPDX-License-Identifier: MIT
#include "server/vorna_interface/aot.h"

#include <optional>

#include "common/kx_utils/files.h"
#include "common/kx_utils/packages.h"
#include "common/log.h"
#include "platform/native_image.h"
#include "server/globals/globals.h"

namespace {

// Assemblies of these applications are only ever updated together.
constexpr char kInhouseAppType[] = "dotnet-inhouse";
// Lists the assemblies of coba packages; the runtime writes it anew at the next start.
constexpr char kTpaList[] = "/opt/usr/home/owner/share/dotnet/TPA.txt";

std::optional<std::string> get_app_type(const std::string& package_id) {
  const std::string app_id = getMainAppIdFromPackageId(package_id);
  if (app_id.empty()) {
    LOGE("error get_mainappid");
    return std::nullopt;
  }
  app_info* handle = nullptr;
  if (app_info_get(app_id.c_str(), &handle) != 0) return std::nullopt;
  const AppInfoPtr app(handle);
  const char* app_type = nullptr;
  if (app_info_get_app_type(app.get(), &app_type) != 0 || app_type == nullptr) {
    return std::nullopt;
  }
  LOGD("_get_app_type: %s", app_type);
  return app_type;
}

// The queue worker must not be felt; a client that waits is served with all processors.
bool is_background_compile() {
  return tm->get_thread_status() != THREAD_STATUS_SINGLE_PACKAGE_AOT;
}

// The result for a failed call of the native-image library.
vorna_error creation_failure(const char* function, int code) {
  if (code != NI_ERROR_COMPILER_KILLED) return VORNA_ERROR_NI_CREATION_FAILED;
  LOGE_AS(function, "corerun process is killed abnormally");
  return VORNA_ERROR_COMPILER_KILLED;
}

vorna_error compile_package_root(const std::string& package_id, const std::string& app_type) {
  NativeImageOption option = {};
  option.flags = NI_FLAG_PACKAGE_ROOT;
  if (app_type == kInhouseAppType) {
    option.flags |= NI_FLAG_INPUT_BUBBLE;
    LOGD_AS("aot", "Type is dotnet-inhouse, input bubble enabled");
  }
  if (is_background_compile()) {
    LOGD_AS("aot", "setup single-thread corerun");
    option.flags |= NI_FLAG_SINGLE_THREAD;
    option.thread_count = "1";
  }
  const int code = createNativeImagesUnderPackageRoot(package_id.c_str(), &option);
  if (code == 0) return VORNA_ERROR_NONE;
  LOGE_AS("aot", "AOT failed to create ni under pkg root [%s]", package_id.c_str());
  return creation_failure("aot", code);
}

vorna_error aot_coba_dpc(const std::string& package_id, const AppMetadata& metadata) {
  const std::string root_path = getRootPath(package_id);
  if (root_path.empty()) {
    LOGE("Package %s not found", package_id.c_str());
    return VORNA_ERROR_PACKAGE_NOT_FOUND;
  }
  const std::string directories = getPackageCobaDpcPaths(root_path, metadata);
  if (tm->is_interrupt_requested()) return VORNA_ERROR_COMPILER_KILLED;

  NativeImageOption option = {};
  if (is_background_compile()) {
    LOGD("setup single-thread corerun");
    option.flags = NI_FLAG_SINGLE_THREAD | NI_FLAG_INPUT_BUBBLE;
    option.thread_count = "1";
  }
  const int code = createNativeImagesUnderDirs(directories.c_str(), &option);
  if (code == 0) return VORNA_ERROR_NONE;
  LOGE("createNativeImagesUnderDirs error: [%s]", package_id.c_str());
  return creation_failure(__func__, code);
}

}  // namespace

vorna_error aot(const std::string& package_id, const AppMetadata& metadata) {
  LOGI("AOT Compiling %s", package_id.c_str());
  const std::optional<std::string> app_type = get_app_type(package_id);
  if (!app_type) {
    LOGE("Fail to get app type");
    return VORNA_ERROR_APP_TYPE;
  }
  const CompileInProgress::Scope in_progress(compile_in_progress, package_id);
  if (const vorna_error error = compile_package_root(package_id, *app_type)) return error;

  LOGD("metadata isCoba: %d, isDpcType=morlaxtv: %d", metadata.is_coba, metadata.is_dpc_morlaxtv);
  if (metadata.is_coba || metadata.is_dpc_morlaxtv) {
    if (const vorna_error error = aot_coba_dpc(package_id, metadata)) {
      LOGE("AOT failed to create ni under coba/dpc dir [%s]", package_id.c_str());
      return error;
    }
    if (metadata.is_coba) removeFile(kTpaList);
  }
  LOGI("AOT native image successfully created");
  return VORNA_ERROR_NONE;
}
