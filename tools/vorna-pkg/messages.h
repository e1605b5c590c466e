// SPDX-License-Identifier: MIT
// What vorna-pkg says: results on standard output, warnings and errors on standard error, progress
// there too but only if it is a terminal. Text that strangers chose is made visible. One thread.
#ifndef TOOLS_VORNA_PKG_MESSAGES_H
#define TOOLS_VORNA_PKG_MESSAGES_H

#include <cstdint>
#include <string>

namespace vorna_pkg {

void Say(const std::string& text);
void Warn(const std::string& text);
void Complain(const std::string& text);

// "12 files", "1 file".
std::string Count(size_t number, const std::string& thing);
// "13.0 MB", "15.2 kB"
std::string SizeText(uint64_t bytes);

// One line about a copy in progress, rewritten in place, and gone with its owner.
class Progress {
 public:
  Progress(size_t files, uint64_t bytes);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void FileIsDone(uint64_t bytes);

 private:
  bool is_shown_;
  size_t files_;
  uint64_t bytes_;
  size_t files_done_ = 0;
  uint64_t bytes_done_ = 0;
};

}  // namespace vorna_pkg

#endif
