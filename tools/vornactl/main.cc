// SPDX-License-Identifier: MIT
// vornactl: the daemon's client for people and scripts.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <variant>

#include "command_line.h"
#include "error.h"
#include "terminal.h"

namespace {

int Run(int argc, char** argv) {
  try {
    const auto parsed = vornactl::ParseCommandLine(argc, argv);
    if (const int* status = std::get_if<int>(&parsed)) return *status;
    const auto& options = std::get<vornactl::Options>(parsed);
    return options.run(options);
  } catch (const vornactl::Error& error) {
    vornactl::Complain(error.what(), error.advice());
    return error.status();
  } catch (const std::exception& error) {
    vornactl::Complain(error.what());
    return vornactl::kNotDone;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int status = Run(argc, argv);
  if (fflush(stdout) == 0 && ferror(stdout) == 0) return status;
  vornactl::Complain(std::string("standard output: ") + strerror(errno));
  return status == vornactl::kDone ? vornactl::kNotDone : status;
}
