// SPDX-License-Identifier: MIT
// How an operation of the host library fails: with the code that its C interface returns and the
// cause for the log. Thrown where it is seen, logged once and turned into the code at the boundary.
#ifndef PLATFORM_HOST_BASE_FAILURE_H
#define PLATFORM_HOST_BASE_FAILURE_H

#include <cerrno>
#include <stdexcept>
#include <string>

#include "base/text.h"
#include "platform/native_image.h"

namespace host {

class Failure : public std::runtime_error {
 public:
  Failure(int code, const std::string& cause) : std::runtime_error(cause), code_(code) {}
  int code() const { return code_; }

 private:
  int code_;
};

// For a system call that failed, with what was to be done.
inline Failure SystemFailure(int error, const std::string& what) {
  const bool full = error == ENOSPC || error == EDQUOT;
  return Failure(full ? NI_ERROR_NO_SPACE : NI_ERROR_SYSTEM, what + ": " + ErrorText(error));
}

}  // namespace host

#endif
