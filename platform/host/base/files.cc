// SPDX-License-Identifier: MIT
#include "base/files.h"

#include <fcntl.h>

#include <cerrno>

namespace host {

UniqueFd OpenDirectory(const std::string& path) {
  return UniqueFd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

UniqueFd OpenDirectoryAt(int directory, const std::string& name) {
  return UniqueFd(openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

UniqueFd OpenDirectoryBeneath(int directory, std::string_view relative_path) {
  UniqueFd current = OpenDirectoryAt(directory, ".");
  while (current && !relative_path.empty()) {
    const size_t slash = relative_path.find('/');
    const std::string component(relative_path.substr(0, slash));
    relative_path.remove_prefix(slash == std::string_view::npos ? relative_path.size() : slash + 1);
    if (component.empty() || component == ".") continue;
    if (component == "..") {
      errno = EXDEV;
      return UniqueFd();
    }
    current = OpenDirectoryAt(current.get(), component);
  }
  return current;
}

UniqueFd OpenRegularFileAt(int directory, const std::string& name, struct stat* status) {
  // Non-blocking, for a FIFO would wait for its writer; it makes no difference to a regular file.
  UniqueFd file(openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat own_status;
  if (status == nullptr) status = &own_status;
  if (!file || fstat(file.get(), status) != 0) return UniqueFd();
  if (!S_ISREG(status->st_mode)) {
    errno = EINVAL;
    return UniqueFd();
  }
  return file;
}

int ReadFileAt(int directory, const std::string& name, size_t limit, std::string* content) {
  struct stat status;
  const UniqueFd file = OpenRegularFileAt(directory, name, &status);
  if (!file) return errno;
  if (static_cast<size_t>(status.st_size) > limit) return EFBIG;
  content->resize(limit + 1);  // one byte more shows a file that grows while it is read
  size_t length = 0;
  while (length <= limit) {
    const ssize_t count = read(file.get(), content->data() + length, content->size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) break;
    length += static_cast<size_t>(count);
  }
  if (length > limit) return EFBIG;
  content->resize(length);
  return 0;
}

int WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t count = write(fd, content.data(), content.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    content.remove_prefix(static_cast<size_t>(count));
  }
  return 0;
}

}  // namespace host
