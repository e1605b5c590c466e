// SPDX-License-Identifier: MIT
// Watches, through /proc, the compiler processes that run while it lives: their command lines and
// the most memory that they held together. A thread of its own looks every few milliseconds; the
// findings may be read after stop().
#pragma once

#include <map>
#include <string>
#include <thread>
#include <vector>

namespace bench {

// What a compiler process was started with.
struct CompilerCommand {
  std::vector<std::string> arguments;    // argv, the name included
  std::vector<std::string> environment;  // NAME=VALUE
  std::string response_file;             // the content of the file of its "@" argument
};

class CompilerWatch {
 public:
  CompilerWatch();
  void stop();

  // In the order in which they were started.
  std::vector<CompilerCommand> commands() const;
  double peak_mebibytes() const { return peak_kibibytes_ / 1024.0; }

 private:
  void watch(const std::stop_token& stop);
  void look();

  std::map<int, CompilerCommand> commands_;  // by process id
  long peak_kibibytes_ = 0;
  std::jthread thread_;  // last: it uses the members above
};

}  // namespace bench
