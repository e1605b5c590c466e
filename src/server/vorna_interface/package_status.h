// SPDX-License-Identifier: MIT
// Questions about one package, answered from the package database and the file system. Nothing is
// changed, nothing is locked.
// Entered by: method-call threads; check_metadata also by the worker and PerformPackageAOT threads.
#pragma once

#include <cstdint>

#include "common/metadata_utils/app_metadata.h"
#include "common/vorna_error.h"

// The numbers are part of the bus interface.
enum vorna_package_statuses : std::int32_t {
  PACKAGE_STATUS_NOT_TARGET = 0,
  PACKAGE_STATUS_AOT_COMPILED = 1,      // no directory examined holds only plain assemblies
  PACKAGE_STATUS_NOT_AOT_COMPILED = 2,  // at least one does
  PACKAGE_STATUS_UNKNOWN = 3,           // no such package, or no metadata
};

// Fills the flags from the package's main application. -1 on failure (logged; the flags are then
// not to be used), else prefer_dotnet_aot as 0 or 1.
int check_metadata(const std::string& package_id, AppMetadata& metadata);

vorna_error get_package_aot_status(const char* package_id, vorna_package_statuses& status);

// Whether the package is a line of the list that the system ships. package_id must not be null.
bool is_package_high_launch_priority(const char* package_id);
