// SPDX-License-Identifier: MIT
// An owned file descriptor, closed with its owner. Not shared between threads.
#ifndef PLATFORM_HOST_BASE_UNIQUE_FD_H
#define PLATFORM_HOST_BASE_UNIQUE_FD_H

#include <unistd.h>

#include <utility>

namespace host {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~UniqueFd() { Reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int Release() { return std::exchange(fd_, -1); }
  void Reset() {
    if (fd_ >= 0) close(std::exchange(fd_, -1));
  }

 private:
  int fd_ = -1;
};

}  // namespace host

#endif
