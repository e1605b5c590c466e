// SPDX-License-Identifier: MIT
// What the platform knows about one package. Any thread; nothing is cached, so that an update is
// seen at once.
#pragma once

#include <memory>
#include <string>

#include "platform/package_info.h"

struct AppInfoDestroy {
  void operator()(app_info* app) const { app_info_destroy(app); }
};
using AppInfoPtr = std::unique_ptr<app_info, AppInfoDestroy>;

// The package's root directory; empty when the package is not installed.
std::string getRootPath(const std::string& package_id);

// The id of the package's main application; empty on failure (logged).
std::string getMainAppIdFromPackageId(const std::string& package_id);

// Whether the package lies in the read-write application area. Preloaded packages do not, and are
// never compiled.
bool isRWInstalledApp(const std::string& package_id);
