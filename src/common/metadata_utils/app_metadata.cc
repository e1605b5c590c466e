// SPDX-License-Identifier: MIT
#include "common/metadata_utils/app_metadata.h"

#include <algorithm>
#include <array>

#include "common/log.h"
#include "common/metadata_utils/metadata_constants.h"
#include "common/vorna_utils/paths.h"

namespace {

// Any one of these makes a package a coba package.
constexpr std::array kCobaKeys = {metadata_key::kCoBa, metadata_key::kViewPlugin,
                                  metadata_key::kViewPluginPage, metadata_key::kBpi};

bool isDpcKey(const Metadata& metadata) {
  if (metadata_key::kDpcType != metadata.key) return false;
  if (metadata_value::kValueDpcmorlaxtv != metadata.value) return false;
  LOGD("%s=%s matched", metadata.key, metadata.value);
  return true;
}

}  // namespace

bool isMetadataInfoHasKey(const Metadata& metadata, const std::string& key) {
  if (key != metadata.key || metadata_value::kValueTrue != metadata.value) return false;
  LOGD("%s matched", key.c_str());
  return true;
}

int metadata_func(const char* key, const char* value, void* user_data) {
  const Metadata pair{key, value};
  const auto has_key = [&pair](std::string_view wanted) {
    return isMetadataInfoHasKey(pair, std::string(wanted));
  };
  AppMetadata& metadata = *static_cast<AppMetadata*>(user_data);
  metadata.prefer_dotnet_aot =
      metadata.prefer_dotnet_aot || has_key(metadata_key::kPreferDotnetAot);
  metadata.is_coba = metadata.is_coba || std::any_of(kCobaKeys.begin(), kCobaKeys.end(), has_key);
  metadata.is_dpc_morlaxtv = metadata.is_dpc_morlaxtv || isDpcKey(pair);
  return 0;
}

std::string getPackageCobaDpcPaths(const std::string& root_path, const AppMetadata& metadata) {
  std::string paths;
  const auto append = [&](std::string_view directory) {
    if (!paths.empty()) paths += kPathDelimiter;
    paths += concatPath(root_path, std::string(directory));
  };
  if (metadata.is_coba) append(metadata_path::kCoBa);
  if (metadata.is_dpc_morlaxtv) append(metadata_path::kDpc);
  LOGD("paths: %s", paths.c_str());
  return paths;
}
