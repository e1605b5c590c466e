// SPDX-License-Identifier: MIT
#include "images/process_stat.h"

#include <dirent.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

namespace host {
namespace {

struct TaskStat {
  char state;
  unsigned long long ticks;
};

// The fields after the command's name, which may hold blanks and brackets of its own.
std::optional<TaskStat> ReadStat(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line)) return std::nullopt;
  const size_t name_end = line.rfind(')');
  if (name_end == std::string::npos) return std::nullopt;
  std::istringstream fields(line.substr(name_end + 1));
  TaskStat stat{};
  std::string skipped;
  fields >> stat.state;
  for (int field = 4; field < 14; ++field) fields >> skipped;
  unsigned long long user = 0;
  unsigned long long system = 0;
  fields >> user >> system;
  stat.ticks = user + system;
  return fields ? std::optional(stat) : std::nullopt;
}

// The number after a word that stands at the beginning of a line.
std::optional<unsigned long long> ReadCounter(const std::string& path, const std::string& name) {
  std::ifstream file(path);
  std::string word;
  unsigned long long value = 0;
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    if (fields >> word >> value && word == name) return value;
  }
  return std::nullopt;
}

// "7:memory:/a/b" and "0::/a/b" are lines of the first and the second version of control groups.
std::optional<unsigned long long> ReadGroupCounter() {
  std::ifstream groups("/proc/self/cgroup");
  std::string line;
  while (std::getline(groups, line)) {
    const size_t path = line.find(":/");
    if (path == std::string::npos) continue;
    const std::string group = line.substr(path + 1);
    std::optional<unsigned long long> kills;
    if (line.find(":memory:") != std::string::npos) {
      kills = ReadCounter("/sys/fs/cgroup/memory" + group + "/memory.oom_control", "oom_kill");
    } else if (line.compare(0, 3, "0::") == 0) {
      kills = ReadCounter("/sys/fs/cgroup" + group + "/memory.events", "oom_kill");
    }
    if (kills) return kills;
  }
  return std::nullopt;
}

}  // namespace

std::optional<unsigned long long> CpuTicksOf(pid_t pid) {
  const auto stat = ReadStat("/proc/" + std::to_string(pid) + "/stat");
  return stat ? std::optional(stat->ticks) : std::nullopt;
}

bool AllThreadsSleep(pid_t pid) {
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(tasks.c_str()), &closedir);
  while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
    if (entry->d_name[0] == '.') continue;
    const auto stat = ReadStat(tasks + "/" + entry->d_name + "/stat");
    if (stat && stat->state != 'S' && stat->state != 'D') return false;
  }
  return true;
}

unsigned long long MemoryKills() {
  if (const auto kills = ReadGroupCounter()) return *kills;
  return ReadCounter("/proc/vmstat", "oom_kill").value_or(0);
}

}  // namespace host
