// SPDX-License-Identifier: MIT
// The C face of the package registry: a handle holds what its manifest said when it was made, so
// that its strings stay good while the package is updated. Any thread; a handle is immutable.
#include "platform/package_info.h"

#include <exception>
#include <string>
#include <variant>

#include "base/host_log.h"
#include "base/package_registry.h"

struct package_info {
  host::Package package;
};

struct app_info {
  host::Application application;
};

namespace {

constexpr int kFailed = -1;

// A client that asks for a package which is not there is everyday life; a package that is there
// and cannot be read is worth an operator's attention.
int Report(const host::LookupFailure& failure) {
  if (failure.absent) {
    HOST_LOG(DEBUG, "%s", failure.cause.c_str());
  } else {
    HOST_LOG(ERROR, "%s", failure.cause.c_str());
  }
  return kFailed;
}

// The boundary: nothing is thrown at a caller in C.
template <typename Call>
int Guarded(Call call) {
  try {
    return call();
  } catch (const std::exception& error) {
    HOST_LOG(ERROR, "Package information: %s", error.what());
    return kFailed;
  }
}

}  // namespace

int package_info_get(const char* package_id, package_info** package) {
  if (package_id == nullptr || package == nullptr) return kFailed;
  return Guarded([&] {
    auto found = host::FindPackage(package_id);
    if (const auto* failure = std::get_if<host::LookupFailure>(&found)) return Report(*failure);
    *package = new package_info{std::get<host::Package>(std::move(found))};
    return 0;
  });
}

int package_info_get_main_app_id(package_info* package, const char** app_id) {
  if (package == nullptr || app_id == nullptr) return kFailed;
  if (package->package.main_application.empty()) {
    HOST_LOG(ERROR, "%s/package.ini: no MainApplication", package->package.root.c_str());
    return kFailed;
  }
  *app_id = package->package.main_application.c_str();
  return 0;
}

int package_info_get_root_path(package_info* package, const char** path) {
  if (package == nullptr || path == nullptr) return kFailed;
  *path = package->package.root.c_str();
  return 0;
}

int package_info_destroy(package_info* package) {
  if (package == nullptr) return kFailed;
  delete package;
  return 0;
}

int app_info_get(const char* app_id, app_info** app) {
  if (app_id == nullptr || app == nullptr) return kFailed;
  return Guarded([&] {
    const auto found = host::FindPackageOfApplication(app_id);
    if (const auto* failure = std::get_if<host::LookupFailure>(&found)) return Report(*failure);
    *app = new app_info{*std::get<host::Package>(found).FindApplication(app_id)};
    return 0;
  });
}

int app_info_get_app_type(app_info* app, const char** app_type) {
  if (app == nullptr || app_type == nullptr) return kFailed;
  if (app->application.type.empty()) {
    HOST_LOG(ERROR, "The manifest gives no Type for %s", app->application.id.c_str());
    return kFailed;
  }
  *app_type = app->application.type.c_str();
  return 0;
}

int app_info_foreach_metadata(app_info* app, app_info_metadata_callback callback, void* user_data) {
  if (app == nullptr || callback == nullptr) return kFailed;
  for (const auto& [key, value] : app->application.metadata) {
    if (callback(key.c_str(), value.c_str(), user_data) != 0) break;
  }
  return 0;
}

int app_info_destroy(app_info* app) {
  if (app == nullptr) return kFailed;
  delete app;
  return 0;
}
