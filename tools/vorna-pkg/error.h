// SPDX-License-Identifier: MIT
// How an operation of vorna-pkg fails: with one message for the person at the terminal, which says
// what is wrong, where, and what to do about it. Caught in main.
#ifndef TOOLS_VORNA_PKG_ERROR_H
#define TOOLS_VORNA_PKG_ERROR_H

#include <cerrno>
#include <stdexcept>
#include <string>

#include "base/text.h"

namespace vorna_pkg {

class Error : public std::runtime_error {
 public:
  explicit Error(const std::string& message, int code = 0)
      : std::runtime_error(message), code_(code) {}
  // Whether it is for want of space.
  bool IsDiskFull() const { return code_ == ENOSPC || code_ == EDQUOT; }

 private:
  int code_;  // errno, or 0
};

// For a system call that failed, with the file or what was to be done.
inline Error SystemError(const std::string& what, int error = errno) {
  const char* advice = "";
  if (error == EACCES || error == EPERM) advice = " (run it as root)";
  if (error == ENOSPC || error == EDQUOT) advice = " (make room and try again)";
  return Error(what + ": " + host::ErrorText(error) + advice, error);
}

}  // namespace vorna_pkg

#endif
