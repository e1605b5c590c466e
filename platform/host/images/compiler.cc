// SPDX-License-Identifier: MIT
#include "images/compiler.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <variant>

#include "base/failure.h"
#include "dotnet/frameworks.h"
#include "images/compiler_process.h"

namespace host {
namespace {

constexpr char kDirectory[] = "/usr/share/dotnet.kivor/netcoreapp/crossgen2";
constexpr char kExecutable[] = "/usr/share/dotnet.kivor/netcoreapp/crossgen2/crossgen2";
// The name under which a compiler process is looked for from outside.
constexpr char kProcessName[] = "/usr/share/dotnet.kivor/netcoreapp/crossgen2/crossgen2.dll";

std::string JitLibrary() {
  const std::string architecture = TargetArchitecture();
  return std::string(kDirectory) + "/libclrjit_unix_" + architecture + "_" + architecture + ".so";
}

// Its first line of output up to the build's tag: "10.0.12-servicing.…" is 10.0.12.
std::string AskVersion() {
  CompilerProcess::Command command;
  command.executable = kExecutable;
  command.arguments = {kProcessName, "--version"};
  command.environment = Compiler::Environment({}, "/tmp");
  CompilerProcess process(command);
  const CompilerProcess::Result result = process.Wait();
  if (const auto* failed = std::get_if<CompilerProcess::NotStarted>(&result)) {
    throw Failure(NI_ERROR_NO_COMPILER, Format("%s: %s: %s", kExecutable, failed->step,
                                               ErrorText(failed->error).c_str()));
  }
  std::string version = process.output().substr(0, process.output().find_first_of("-+\n"));
  if (MajorOf(version) == 0) {
    throw Failure(NI_ERROR_NO_COMPILER, std::string(kExecutable) + " does not tell its version");
  }
  return version;
}

}  // namespace

Compiler Compiler::Find() {
  for (const std::string& file : {std::string(kExecutable), JitLibrary()}) {
    if (access(file.c_str(), R_OK) != 0) {
      throw Failure(NI_ERROR_NO_COMPILER, "no compiler: " + file + ": " + ErrorText(errno));
    }
  }
  if (access(kExecutable, X_OK) != 0) {
    throw Failure(NI_ERROR_NO_COMPILER, std::string(kExecutable) + ": " + ErrorText(errno));
  }
  char resolved[PATH_MAX];
  if (realpath(kDirectory, resolved) == nullptr) {
    throw Failure(NI_ERROR_NO_COMPILER, std::string(kDirectory) + ": " + ErrorText(errno));
  }
  Compiler compiler;
  compiler.executable_ = kExecutable;
  compiler.real_directory_ = resolved;
  compiler.version_ = AskVersion();
  return compiler;
}

int Compiler::major() const {
  return MajorOf(version_);
}

std::vector<std::string> Compiler::Arguments(const Input& input, const CompileMode& mode) const {
  std::vector<std::string> arguments = {kProcessName,
                                        input.assembly,
                                        "-o",
                                        input.output,
                                        "@" + input.reference_list,
                                        "--targetos",
                                        "linux",
                                        "--targetarch",
                                        TargetArchitecture(),
                                        "-O"};
  if (input.bubble) arguments.push_back("--inputbubble");
  if (mode.threads) {
    arguments.push_back("--parallelism");
    arguments.push_back(std::to_string(*mode.threads));
  }
  return arguments;
}

std::vector<std::string> Compiler::Environment(const CompileMode& mode,
                                               const std::string& scratch_directory) {
  // A whole new environment: inherited DOTNET_ and COMPlus_ variables can hang the compiler or
  // change what it makes. The server collector would start a heap and threads for each processor.
  std::vector<std::string> environment = {
      "PATH=/usr/bin:/bin",          "LANG=C.UTF-8",
      "TMPDIR=" + scratch_directory, "DOTNET_SYSTEM_GLOBALIZATION_INVARIANT=1",
      "DOTNET_EnableDiagnostics=0",  "DOTNET_gcServer=0"};
  if (mode.threads == 1U) environment.push_back("DOTNET_gcConcurrent=0");
  return environment;
}

const char* TargetArchitecture() {
#if defined(__x86_64__)
  return "x64";
#elif defined(__aarch64__)
  return "arm64";
#elif defined(__arm__)
  return "arm";
#else
  return "x86";
#endif
}

}  // namespace host
