// SPDX-License-Identifier: MIT
// Compiles one package at once, for a client that waits: takes the compiler away from the queue
// worker and moves the daemon to the running group meanwhile.
// Entered by: PerformPackageAOT threads, one at a time (perform_aot_mtx).
#pragma once

#include <string>

#include "common/vorna_error.h"

// On return the worker may run again; after a success the package has left the queue.
vorna_error perform_single_package_aot(const std::string& package_id);
