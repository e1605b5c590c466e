// SPDX-License-Identifier: MIT
// Paths, free storage, and the look for assemblies and native images in a package's directories.
// Any thread; no state.
#pragma once

#include <functional>
#include <string>

// Joins several directories into one list.
inline constexpr char kPathDelimiter[] = ":";

// Less free storage than this (bytes, for unprivileged users) is too little to compile: 70 MiB.
inline constexpr unsigned long long kRequiredStorage = 73'400'320;

// a + '/' + b, without a second '/' where `a` ends in one. `a` is not empty.
std::string concatPath(const std::string& a, const std::string& b);

// Whether the file system of the path has room for native images; false (logged) when it cannot be
// examined.
bool isStorageSufficient(const std::string& path);

bool endsWith(const std::string& text, const std::string& suffix);

// Called with the full path and the name of a file.
using FileCallback = std::function<void(const std::string& path, const char* name)>;

// Reports the regular files and symbolic links of a directory and, down to `depth` levels below it,
// of its subdirectories: a directory's files before what its subdirectories hold. Links are never
// followed. A directory that cannot be opened is passed over.
void scanFilesInDirectory(const std::string& directory, const FileCallback& callback, int depth);

// Whether the tree holds a native image, or its first plain assembly is ReadyToRun already.
bool isPackageAOTCompiled(std::string root_path);

// Whether the tree holds a plain assembly: a .dll file that is not a native image.
bool hasDllFile(const std::string& directory);
