// SPDX-License-Identifier: MIT
// After a compile: native images in a directory with the privileged system label cannot be used by
// the application. They are removed and the package is queued again, for the next compile makes the
// directory with a label of its own.
// Entered by: the worker, with no lock held.
#pragma once

#include <string>

void check_label_of_ni_dir(const std::string& root_path, const std::string& package_id);
