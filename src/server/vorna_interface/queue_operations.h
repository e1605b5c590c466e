// SPDX-License-Identifier: MIT
// What changes or reads the AOT queue. Each change rewrites the queue file before aot_queue_mtx is
// released.
// Entered by: method-call threads, PerformPackageAOT threads, the worker, the main loop.
#pragma once

#include <boost/optional.hpp>
#include <string>

#include "common/vorna_error.h"
#include "common/vorna_utils/aot_queue.h"

// Loads the queue file, creating it if missing. False when that fails (logged).
bool init_aot_queue();

// Appends a package unless it is queued; always VORNA_ERROR_NONE. package_id must not be null.
vorna_error add_package_to_aot_queue(const char* package_id);

// Removes the first entry of a package. If the worker is compiling it, its compiler is killed.
// VORNA_ERROR_NOT_IN_QUEUE when there is none.
vorna_error remove_package_from_aot_queue(const char* package_id);

// A copy of the front package: a reference would dangle as soon as another thread drops the entry.
boost::optional<AOTPackage> get_front_package();

// Drops the front if it is this package.
void pop_queue_if_equals(const std::string& package_id);

bool is_package_in_aot_queue(const char* package_id);
