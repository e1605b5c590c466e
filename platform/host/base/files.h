// SPDX-License-Identifier: MIT
// Files in trees that strangers can write to: nothing here follows a symbolic link below the
// directory that it is given, waits for a FIFO, or reads without a bound. Any thread.
#ifndef PLATFORM_HOST_BASE_FILES_H
#define PLATFORM_HOST_BASE_FILES_H

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "base/unique_fd.h"

namespace host {

// Opens a directory by its full path, or below another one; each failure leaves errno.
UniqueFd OpenDirectory(const std::string& path);
UniqueFd OpenDirectoryAt(int directory, const std::string& name);

// Walks "a/b/c" down from a directory. Empty and "." components are passed over; ".." fails with
// EXDEV, a link with ENOTDIR or ELOOP.
UniqueFd OpenDirectoryBeneath(int directory, std::string_view relative_path);

// Opens a regular file for reading; anything else fails with EINVAL (a link: ELOOP).
UniqueFd OpenRegularFileAt(int directory, const std::string& name, struct stat* status = nullptr);

// The whole content of a regular file of at most `limit` bytes; more fails with EFBIG. 0 or errno.
int ReadFileAt(int directory, const std::string& name, size_t limit, std::string* content);

// Writes all of it. 0 or errno.
int WriteAll(int fd, std::string_view content);

inline long long ModificationTimeNs(const struct stat& status) {
  return status.st_mtim.tv_sec * 1'000'000'000LL + status.st_mtim.tv_nsec;
}
inline long long ChangeTimeNs(const struct stat& status) {
  return status.st_ctim.tv_sec * 1'000'000'000LL + status.st_ctim.tv_nsec;
}

}  // namespace host

#endif
