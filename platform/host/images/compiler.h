// SPDX-License-Identifier: MIT
// The crossgen2 compiler of this machine: where it is, which version, and the command line for one
// assembly. Immutable once found; any thread.
#ifndef PLATFORM_HOST_IMAGES_COMPILER_H
#define PLATFORM_HOST_IMAGES_COMPILER_H

#include <optional>
#include <string>
#include <vector>

namespace host {

// How a compile uses the machine.
struct CompileMode {
  bool one_at_a_time = false;
  std::optional<unsigned> threads;  // of one compiler; nothing: its own default
};

class Compiler {
 public:
  // Throws Failure (NI_ERROR_NO_COMPILER) with the cause.
  static Compiler Find();

  const std::string& version() const { return version_; }
  int major() const;
  const std::string& executable() const { return executable_; }
  // With every link resolved: what the child must be able to read.
  const std::string& real_directory() const { return real_directory_; }

  struct Input {
    std::string assembly;        // full path
    std::string reference_list;  // full path of a response file
    std::string output;          // full path
    bool bubble = false;         // the reference list names the other members
  };
  std::vector<std::string> Arguments(const Input& input, const CompileMode& mode) const;
  static std::vector<std::string> Environment(const CompileMode& mode,
                                              const std::string& scratch_directory);

 private:
  std::string executable_;
  std::string real_directory_;
  std::string version_;
};

// "x64", "arm64", …: the compiler's own word for this processor.
const char* TargetArchitecture();

}  // namespace host

#endif
