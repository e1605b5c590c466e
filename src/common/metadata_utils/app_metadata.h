// SPDX-License-Identifier: MIT
// What a package's main application declares about ahead-of-time compilation. Any thread; no state.
#pragma once

#include <string>

struct AppMetadata {
  bool prefer_dotnet_aot = false;  // the package asks to be compiled
  bool is_coba = false;            // external components or plug-ins lie under its shared resources
  bool is_dpc_morlaxtv = false;    // a DPC package of the morlaxtv type
};

struct Metadata {
  const char* key;
  const char* value;
};

// Whether the pair is this key with the value "true".
bool isMetadataInfoHasKey(const Metadata& metadata, const std::string& key);

// Callback of app_info_foreach_metadata; user_data is the AppMetadata to fill. A flag once set
// stays set. Always 0: every pair is looked at.
int metadata_func(const char* key, const char* value, void* user_data);

// The shared directories to compile besides the package's own, joined with kPathDelimiter.
std::string getPackageCobaDpcPaths(const std::string& root_path, const AppMetadata& metadata);
