// SPDX-License-Identifier: MIT
#include "bench/service_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace bench {
namespace {

pid_t start(const char* executable) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  char* arguments[] = {const_cast<char*>(executable), nullptr};
  pid_t pid = -1;
  const int error = posix_spawn(&pid, executable, &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) g_error("cannot start %s: %s", executable, std::strerror(error));
  return pid;
}

void on_owner_changed(GDBusConnection*, const char*, const char*, const char*, const char*,
                      GVariant* parameters, gpointer owned) {
  const char* new_owner = nullptr;
  g_variant_get(parameters, "(&s&s&s)", nullptr, nullptr, &new_owner);
  *static_cast<bool*>(owned) = *new_owner != '\0';
}

void on_child_ended(GPid, int, gpointer executable) {
  g_error("%s has ended", static_cast<const char*>(executable));
}

}  // namespace

ServiceProcess::ServiceProcess(GDBusConnection* bus, const char* executable, const char* bus_name)
    : bus_name_(bus_name) {
  bool owned = false;
  const guint subscription = g_dbus_connection_signal_subscribe(
      bus, "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
      "/org/freedesktop/DBus", bus_name, G_DBUS_SIGNAL_FLAGS_NONE, on_owner_changed, &owned,
      nullptr);
  const auto begin = std::chrono::steady_clock::now();
  pid_ = start(executable);
  const guint child_watch = g_child_watch_add(pid_, on_child_ended, const_cast<char*>(executable));
  while (!owned) g_main_context_iteration(nullptr, TRUE);
  seconds_to_name_ =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  g_source_remove(child_watch);
  g_dbus_connection_signal_unsubscribe(bus, subscription);
}

ServiceProcess::~ServiceProcess() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

double ServiceProcess::memory(std::initializer_list<const char*> fields) const {
  std::ifstream rollup("/proc/" + std::to_string(pid_) + "/smaps_rollup");
  std::string line;
  double kibibytes = 0;
  while (std::getline(rollup, line)) {
    for (const char* field : fields) {
      const std::size_t length = std::strlen(field);
      if (line.compare(0, length, field) == 0 && line[length] == ':') {
        kibibytes += std::strtod(line.c_str() + length + 1, nullptr);
      }
    }
  }
  return kibibytes / 1024;
}

double ServiceProcess::cpu_seconds() const {
  double nanoseconds = 0;
  for (const auto& task :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid_) + "/task")) {
    double on_processor = 0;
    std::ifstream(task.path() / "schedstat") >> on_processor;
    nanoseconds += on_processor;
  }
  return nanoseconds / 1e9;
}

long ServiceProcess::voluntary_context_switches() const {
  constexpr char kField[] = "voluntary_ctxt_switches:";
  long switches = 0;
  for (const auto& task :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid_) + "/task")) {
    std::ifstream status(task.path() / "status");
    std::string line;
    while (std::getline(status, line)) {
      if (line.rfind(kField, 0) == 0) switches += std::atol(line.c_str() + sizeof(kField) - 1);
    }
  }
  return switches;
}

}  // namespace bench
