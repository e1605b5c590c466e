// SPDX-License-Identifier: MIT
// Small questions and changes to the file system. Any thread; no state.
#pragma once

#include <string>

// Creates a directory and its missing parents unless something exists at the path already.
// False when that fails (logged). Throws boost::filesystem::filesystem_error when it cannot be told
// whether the path exists.
bool createDir(const std::string& path);

// Removes a file if it is there; a failure is logged.
void removeFile(const std::string& path);

// Whether a path can be worked on without being led elsewhere: false for an empty path, a symbolic
// link and a path that cannot be examined (each logged), true for anything else, also if missing.
bool isRealPath(const std::string& path);
