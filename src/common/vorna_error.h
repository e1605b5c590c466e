// SPDX-License-Identifier: MIT
// The result codes of all operations. Clients compare the numbers: they are part of the bus
// interface and never change. 2 and 3 are not in use.
#pragma once

#include <cstdint>

enum vorna_error : std::int32_t {
  VORNA_ERROR_NONE = 0,
  VORNA_ERROR_INVALID_PARAMETER = 1,     // a required string argument is missing
  VORNA_ERROR_METADATA = 4,              // the package's metadata could not be read
  VORNA_ERROR_APP_TYPE = 5,              // the main application's type could not be read
  VORNA_ERROR_PACKAGE_NOT_FOUND = 6,     // not installed, or its root path is unknown
  VORNA_ERROR_INSUFFICIENT_STORAGE = 7,  // too little free storage to compile
  VORNA_ERROR_NOT_AOT_TARGET = 8,        // the package does not ask to be compiled
  VORNA_ERROR_NI_CREATION_FAILED = 9,    // no native images could be made
  VORNA_ERROR_COMPILER_KILLED = 10,      // interrupted; the package is to be compiled again
  VORNA_ERROR_NI_LIBRARY = 11,           // the native-image library failed to start or to remove
  VORNA_ERROR_SET_PRIORITY = 12,         // the nice value could not be set
  VORNA_ERROR_DAEMON_PROCESS = 13,       // an unknown daemon command, or one that failed
  VORNA_ERROR_NOT_IN_QUEUE = 14,         // the package to remove is not queued
};
