// SPDX-License-Identifier: MIT
// How a command fails before the daemon has answered: what is wrong, what to do next, and the exit
// status. Caught in main.
#ifndef TOOLS_VORNACTL_ERROR_H
#define TOOLS_VORNACTL_ERROR_H

#include <stdexcept>
#include <string>

#include "exit_status.h"

namespace vornactl {

class Error : public std::runtime_error {
 public:
  Error(ExitStatus status, const std::string& what, std::string advice)
      : std::runtime_error(what), status_(status), advice_(std::move(advice)) {}
  ExitStatus status() const { return status_; }
  const std::string& advice() const { return advice_; }

 private:
  ExitStatus status_;
  std::string advice_;
};

// The name has no owner. Told apart, for who waits for the daemon may see it come back.
class NotRunning : public Error {
 public:
  using Error::Error;
};

}  // namespace vornactl

#endif
