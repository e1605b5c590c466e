// SPDX-License-Identifier: MIT
// Compiling a package through the library call that the daemon makes, beside the same compiler
// runs by themselves: with the same arguments and environment, in turn, their images thrown away.
// Run by scripts/bench in a private world with the package and the compiler in place:
//
//   compile_benchmark PACKAGE_ID SCRATCH_DIRECTORY
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "bench/comparison.h"
#include "bench/compiler_watch.h"
#include "platform/native_image.h"

namespace {

using bench::Comparison;
using bench::CompilerCommand;

constexpr int kRounds = 3;
constexpr char kCompiler[] = "/usr/share/dotnet.kivor/netcoreapp/crossgen2/crossgen2";

struct Mode {
  const char* name;
  NativeImageOption option;
};

constexpr Mode kModes[] = {
    {"in background", {NI_FLAG_PACKAGE_ROOT | NI_FLAG_SINGLE_THREAD, "1"}},
    {"at once", {NI_FLAG_PACKAGE_ROOT, nullptr}},
};

struct Cost {
  double wall_seconds;
  double cpu_seconds;
  double peak_mebibytes;  // of the compilers, together
};

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "compile_benchmark: %s\n", what.c_str());
  std::exit(1);
}

double cpu_seconds_so_far() {
  double seconds = 0;
  for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage usage{};
    getrusage(who, &usage);
    for (const timeval& time : {usage.ru_utime, usage.ru_stime}) {
      seconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    }
  }
  return seconds;
}

// The watching costs both sides the same.
Cost cost_of(const std::function<void()>& work) {
  bench::CompilerWatch watch;
  const double cpu_before = cpu_seconds_so_far();
  const double wall = bench::seconds_of(work);
  watch.stop();
  return {wall, cpu_seconds_so_far() - cpu_before, watch.peak_mebibytes()};
}

void compile(const char* package_id, const NativeImageOption& option) {
  if (createNativeImagesUnderPackageRoot(package_id, &option) != 0) fail("the compile failed");
}

void remove_images(const char* package_id) {
  if (removeNativeImagesUnderPackageRoot(package_id) != 0) fail("the removal failed");
}

std::vector<char*> pointers_to(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (std::string& string : strings) pointers.push_back(string.data());
  pointers.push_back(nullptr);
  return pointers;
}

void run_compiler(CompilerCommand command) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  const int error =
      posix_spawn(&pid, kCompiler, &actions, nullptr, pointers_to(command.arguments).data(),
                  pointers_to(command.environment).data());
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) fail(std::string("cannot start the compiler: ") + std::strerror(error));
  int status = 0;
  waitpid(pid, &status, 0);
  if (status != 0) fail("a compiler that runs by itself failed");
}

// The directory that the library let the compiler work in is gone by now.
void move_to_scratch(CompilerCommand& command, const std::string& scratch, std::size_t number) {
  const std::string response_file = scratch + "/references." + std::to_string(number);
  std::ofstream(response_file) << command.response_file;
  for (std::size_t i = 0; i < command.arguments.size(); ++i) {
    if (command.arguments[i][0] == '@') command.arguments[i] = '@' + response_file;
    if (i > 0 && command.arguments[i - 1] == "-o") command.arguments[i] = scratch + "/image";
  }
}

// Also fills the page cache for what is measured after it.
std::vector<CompilerCommand> commands_of_a_compile(const char* package_id, const Mode& mode,
                                                   const std::string& scratch) {
  remove_images(package_id);
  bench::CompilerWatch watch;
  compile(package_id, mode.option);
  watch.stop();
  std::vector<CompilerCommand> commands = watch.commands();
  // The question for the compiler's version is the library's own expense.
  std::erase_if(commands, [](const CompilerCommand& command) {
    return std::find(command.arguments.begin(), command.arguments.end(), "-o") ==
           command.arguments.end();
  });
  if (commands.empty()) fail("the library started no compiler");
  for (std::size_t i = 0; i < commands.size(); ++i) move_to_scratch(commands[i], scratch, i);
  return commands;
}

void measure(const char* package_id, const Mode& mode, const std::string& scratch) {
  const auto commands = commands_of_a_compile(package_id, mode, scratch);
  Comparison cpu;
  Comparison peak;
  const Comparison wall = bench::in_turn(
      kRounds,
      [&] {
        remove_images(package_id);
        const Cost cost = cost_of([&] { compile(package_id, mode.option); });
        cpu.ours.push_back(cost.cpu_seconds);
        peak.ours.push_back(cost.peak_mebibytes);
        return cost.wall_seconds;
      },
      [&] {
        const Cost cost = cost_of([&] {
          for (const CompilerCommand& command : commands) run_compiler(command);
        });
        cpu.baseline.push_back(cost.cpu_seconds);
        peak.baseline.push_back(cost.peak_mebibytes);
        return cost.wall_seconds;
      });
  const std::string what = std::string("compile ") + mode.name;
  bench::print_row((what + ", wall").c_str(), "s", wall, "<= 1.05");
  bench::print_row((what + ", CPU").c_str(), "s", cpu, "<= 1.05");
  bench::print_row((what + ", peak memory").c_str(), "MiB", peak, "");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: compile_benchmark PACKAGE_ID SCRATCH_DIRECTORY\n");
    return 2;
  }
  if (initNativeImageCommon() != 0) fail("no usable compiler");
  for (const Mode& mode : kModes) measure(argv[1], mode, argv[2]);
  finalizeNativeImageCommon();
}
