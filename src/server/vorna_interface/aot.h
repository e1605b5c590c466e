// SPDX-License-Identifier: MIT
// Compiles one installed package: its own assemblies, then the shared directories that its metadata
// names. The caller has checked that the package is to be compiled and has initialised the
// native-image library.
// Entered by: the worker or a PerformPackageAOT thread, never both at once.
#pragma once

#include <string>

#include "common/metadata_utils/app_metadata.h"
#include "common/vorna_error.h"

// VORNA_ERROR_COMPILER_KILLED also when a halt or an abort was seen between the two steps.
vorna_error aot(const std::string& package_id, const AppMetadata& metadata);
