// SPDX-License-Identifier: MIT
// Watches the recovery directory and ties its files to the packages that are being compiled, so
// that a package under update or uninstallation leaves the queue, and comes back after an update.
// Entered by: the main loop (directory events) and the worker (watch, unwatch). mutex_ guards the
// two containers and is never held while a callback runs.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "server/recovery_file_watcher/recovery_file.h"

namespace server {

class RecoveryFileWatcher {
 public:
  using RecoveryFile = recovery_file_watcher::RecoveryFile;
  using Callback = std::function<void(RecoveryFile)>;

  // Ends the process when the directory cannot be monitored: unseen updates would be compiled into.
  RecoveryFileWatcher(const Callback& on_created, const Callback& on_deleted);
  ~RecoveryFileWatcher();
  RecoveryFileWatcher(const RecoveryFileWatcher&) = delete;
  RecoveryFileWatcher& operator=(const RecoveryFileWatcher&) = delete;

  // From now on recovery files of this package are reported. One that is there already is reported
  // at once, on the calling thread. Throws std::filesystem::filesystem_error when the directory
  // cannot be read; the package is then watched all the same.
  void watch_package_id(const std::string& package_id);
  // Ends that, unless a recovery file of the package is there: its deletion is still reported.
  void unwatch_package_id(const std::string& package_id);

  // Parses one file; empty, and logged, when it cannot be used. Never throws for a bad file.
  static std::optional<RecoveryFile> try_create_recovery_file(const std::filesystem::path& path);

 private:
  static void g_callback(GFileMonitor* monitor, GFile* file, GFile* other_file,
                         GFileMonitorEvent event_type, gpointer watcher);
  void file_created_callback(const std::filesystem::path& path);
  void file_deleted_callback(const std::filesystem::path& path);
  // The file as the first that concerns a watched package without one, or empty. Needs mutex_.
  std::optional<RecoveryFile> record_for_watched_package(const std::filesystem::path& path);

  static constexpr char recovery_file_directory_[] = "/opt/usr/apps/.recovery/";

  gulong handler_id_ = 0;
  GFile* directory_ = nullptr;
  GFileMonitor* monitor_ = nullptr;
  std::mutex mutex_;
  std::unordered_set<std::string> watched_package_ids_;
  // By package id; every key is in watched_package_ids_ too.
  std::unordered_map<std::string, RecoveryFile> recovery_files_;
  Callback on_recovery_file_created_;
  Callback on_recovery_file_deleted_;
};

}  // namespace server
