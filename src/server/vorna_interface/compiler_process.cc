// SPDX-License-Identifier: MIT
#include "server/vorna_interface/compiler_process.h"

#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "common/log.h"

namespace {

constexpr std::string_view kCompiler = "/usr/share/dotnet.kivor/netcoreapp/crossgen2/crossgen2.dll";
constexpr int kKillAttempts = 5;
constexpr int kKillsEnough = 2;
constexpr useconds_t kKillPause = 100'000;
constexpr int kStillAlive = 15;

struct PipeClose {
  void operator()(std::FILE* pipe) const { pclose(pipe); }
};
using PipePtr = std::unique_ptr<std::FILE, PipeClose>;

// The text as one word of the shell, whatever it holds: package ids come from any client.
std::string shell_word(std::string_view text) {
  std::string word = "'";
  for (const char character : text) {
    if (character == '\'') {
      word += "'\\''";
    } else {
      word += character;
    }
  }
  return word += '\'';
}

// The shell gives its process to pgrep: a shell that stayed would have the pattern in its own
// command line and be found by it.
std::string search_command(std::string_view process_pattern) {
  constexpr std::string_view quote = "\"";
  if (process_pattern.starts_with(quote)) process_pattern.remove_prefix(1);
  if (process_pattern.ends_with(quote)) process_pattern.remove_suffix(1);
  return "exec pgrep -f -- " + shell_word(process_pattern) + " 2>/dev/null";
}

// A package id may make the pattern match strangers. The compiler has its own path as an argument,
// in whatever program it runs.
bool is_compiler(int pid) {
  std::ifstream command_line("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
  std::string argument;
  while (std::getline(command_line, argument, '\0')) {
    if (argument == kCompiler) return true;
  }
  return false;
}

}  // namespace

int search_pid_of(const char* process_pattern) {
  // Two searches at once would find each other.
  static std::mutex one_search;
  const std::lock_guard lock(one_search);

  const PipePtr pipe(popen(search_command(process_pattern).c_str(), "re"));
  if (!pipe) {
    LOGE("Error searching for pid of %s. popen returns NULL.", process_pattern);
    return 0;
  }
  std::array<char, 128> line = {};
  if (std::fgets(line.data(), line.size(), pipe.get()) == nullptr) {
    LOGE("Error searching for pid of %s. pgrep returns empty result.", process_pattern);
    return 0;
  }
  do {
    const int pid = std::stoi(line.data());
    if (is_compiler(pid)) return pid;
  } while (std::fgets(line.data(), line.size(), pipe.get()) != nullptr);
  return 0;
}

int kill_crossgen(const char* package_id) {
  if (package_id == nullptr) return 1;
  const std::string pattern =
      "\"" + std::string(kCompiler) + ".* /opt/usr/apps/" + package_id + "\"";
  LOGD("process name to kill: %s", pattern.c_str());

  int kills = 0;
  for (int attempt = 0; attempt < kKillAttempts && kills < kKillsEnough; ++attempt) {
    const int pid = search_pid_of(pattern.c_str());
    if (pid != 0 && kill(pid, SIGKILL) == 0) ++kills;
    usleep(kKillPause);
  }
  return search_pid_of(pattern.c_str()) != 0 ? kStillAlive : 0;
}
