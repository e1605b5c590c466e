// SPDX-License-Identifier: MIT
#include "bench/compiler_watch.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace bench {
namespace {

constexpr std::chrono::milliseconds kInterval{10};
constexpr char kCompilerName[] = "/usr/share/dotnet.kivor/netcoreapp/crossgen2/crossgen2.dll";

// A file of /proc with zero-terminated strings in it; empty when the process has gone.
std::vector<std::string> read_strings(const std::filesystem::path& path) {
  std::vector<std::string> strings;
  std::ifstream file(path);
  for (std::string text; std::getline(file, text, '\0');) strings.push_back(text);
  return strings;
}

// Read while the compiler runs, for it is gone afterwards.
std::string response_file_of(const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) {
    if (argument[0] != '@') continue;
    std::ostringstream content;
    content << std::ifstream(argument.substr(1)).rdbuf();
    return content.str();
  }
  return "";
}

long resident_kibibytes(const std::filesystem::path& process) {
  std::ifstream statm(process / "statm");
  long size = 0;
  long resident = 0;
  statm >> size >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

CompilerWatch::CompilerWatch() : thread_([this](const std::stop_token& stop) { watch(stop); }) {}

void CompilerWatch::stop() {
  thread_.request_stop();
  if (thread_.joinable()) thread_.join();
}

std::vector<CompilerCommand> CompilerWatch::commands() const {
  std::vector<CompilerCommand> commands;
  for (const auto& [pid, command] : commands_) commands.push_back(command);
  return commands;
}

void CompilerWatch::watch(const std::stop_token& stop) {
  while (!stop.stop_requested()) {
    look();
    std::this_thread::sleep_for(kInterval);
  }
}

void CompilerWatch::look() {
  long kibibytes = 0;
  std::error_code error;
  for (const auto& process : std::filesystem::directory_iterator("/proc", error)) {
    const int pid = std::atoi(process.path().filename().c_str());
    if (pid == 0) continue;
    const std::vector<std::string> arguments = read_strings(process.path() / "cmdline");
    if (arguments.empty() || arguments[0] != kCompilerName) continue;
    kibibytes += resident_kibibytes(process.path());
    if (commands_.count(pid) == 0) {
      commands_[pid] = {arguments, read_strings(process.path() / "environ"),
                        response_file_of(arguments)};
    }
  }
  peak_kibibytes_ = std::max(peak_kibibytes_, kibibytes);
}

}  // namespace bench
