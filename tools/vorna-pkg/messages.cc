// SPDX-License-Identifier: MIT
#include "messages.h"

#include <unistd.h>

#include <cstdio>

#include "base/text.h"

namespace vorna_pkg {

void Say(const std::string& text) {
  printf("%s\n", host::Visible(text).c_str());
  fflush(stdout);  // in order with what goes to standard error
}

void Warn(const std::string& text) {
  fprintf(stderr, "vorna-pkg: warning: %s\n", host::Visible(text).c_str());
}

void Complain(const std::string& text) {
  fprintf(stderr, "vorna-pkg: %s\n", host::Visible(text).c_str());
}

std::string Count(size_t number, const std::string& thing) {
  return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

std::string SizeText(uint64_t bytes) {
  const auto size = static_cast<double>(bytes);
  return size < 1e6 ? host::Format("%.1f kB", size / 1e3) : host::Format("%.1f MB", size / 1e6);
}

Progress::Progress(size_t files, uint64_t bytes)
    : is_shown_(isatty(STDERR_FILENO) != 0), files_(files), bytes_(bytes) {}

Progress::~Progress() {
  if (is_shown_) fputs("\r\033[K", stderr);
}

void Progress::FileIsDone(uint64_t bytes) {
  ++files_done_;
  bytes_done_ += bytes;
  if (!is_shown_) return;
  fprintf(stderr, "\r\033[Kcopying: %zu of %zu files, %s of %s", files_done_, files_,
          SizeText(bytes_done_).c_str(), SizeText(bytes_).c_str());
}

}  // namespace vorna_pkg
