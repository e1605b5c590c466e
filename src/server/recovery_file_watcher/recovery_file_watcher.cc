// SPDX-License-Identifier: MIT
#include "server/recovery_file_watcher/recovery_file_watcher.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "common/log.h"

namespace server {

namespace {

using recovery_file_watcher::RecoveryFile;

// A recovery file of the package that is in the directory now.
std::optional<RecoveryFile> find_recovery_file(const char* directory,
                                               const std::string& package_id) {
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    std::error_code unreadable;
    if (!entry.is_regular_file(unreadable)) continue;
    auto file = RecoveryFileWatcher::try_create_recovery_file(entry.path());
    if (file && file->package_id == package_id) return file;
  }
  return std::nullopt;
}

}  // namespace

RecoveryFileWatcher::RecoveryFileWatcher(const Callback& on_created, const Callback& on_deleted)
    : on_recovery_file_created_(on_created), on_recovery_file_deleted_(on_deleted) {
  directory_ = g_file_new_for_path(recovery_file_directory_);
  GError* error = nullptr;
  monitor_ = g_file_monitor_directory(directory_, G_FILE_MONITOR_WATCH_MOVES, nullptr, &error);
  if (error != nullptr) {
    LOGE("Failed to create g_file_monitor: %s", error->message);
    std::terminate();
  }
  if (monitor_ == nullptr) {
    LOGE("Failed to create g_file_monitor");
    std::terminate();
  }
  handler_id_ = g_signal_connect(monitor_, "changed", G_CALLBACK(g_callback), this);
  LOGD("Start watching recovery file directory: %s", recovery_file_directory_);
}

RecoveryFileWatcher::~RecoveryFileWatcher() {
  LOGD("Finalize");
  g_signal_handler_disconnect(monitor_, handler_id_);
  g_object_unref(monitor_);
  g_object_unref(directory_);
}

void RecoveryFileWatcher::watch_package_id(const std::string& package_id) {
  std::unique_lock lock(mutex_);
  LOGD("Watching package id: %s", package_id.c_str());
  watched_package_ids_.insert(package_id);
  const auto file = find_recovery_file(recovery_file_directory_, package_id);
  if (!file) return;
  recovery_files_.emplace(package_id, *file);
  lock.unlock();
  on_recovery_file_created_(*file);
}

void RecoveryFileWatcher::unwatch_package_id(const std::string& package_id) {
  const std::lock_guard lock(mutex_);
  if (recovery_files_.contains(package_id)) return;
  LOGD("Unwatching package id: %s", package_id.c_str());
  watched_package_ids_.erase(package_id);
}

std::optional<RecoveryFile> RecoveryFileWatcher::try_create_recovery_file(
    const std::filesystem::path& path) {
  try {
    return recovery_file_watcher::read_recovery_file(path);
  } catch (const std::exception& error) {
    LOGD("Unable to parse recovery file (%s): %s", path.c_str(), error.what());
    return std::nullopt;
  }
}

void RecoveryFileWatcher::g_callback(GFileMonitor*, GFile* file, GFile*,
                                     GFileMonitorEvent event_type, gpointer watcher) {
  // The string is kept for the life of the process: a path handed out once stays readable.
  const std::filesystem::path path = g_file_get_path(file);
  auto& self = *static_cast<RecoveryFileWatcher*>(watcher);
  if (event_type == G_FILE_MONITOR_EVENT_DELETED) {
    self.file_deleted_callback(path);
  } else if (event_type == G_FILE_MONITOR_EVENT_CREATED ||
             event_type == G_FILE_MONITOR_EVENT_CHANGED) {
    self.file_created_callback(path);
  }
}

void RecoveryFileWatcher::file_created_callback(const std::filesystem::path& path) {
  std::unique_lock lock(mutex_);
  const std::optional<RecoveryFile> file = record_for_watched_package(path);
  lock.unlock();
  if (!file) return;
  LOGD("Calling on_recovery_file_created_ for %s", file->package_id.c_str());
  on_recovery_file_created_(*file);
}

std::optional<RecoveryFile> RecoveryFileWatcher::record_for_watched_package(
    const std::filesystem::path& path) {
  for (const std::string& id : watched_package_ids_) {
    if (recovery_files_.contains(id)) continue;
    auto file = try_create_recovery_file(path);
    if (!file || file->package_id != id) continue;
    recovery_files_.emplace(id, *file);
    return file;
  }
  return std::nullopt;
}

void RecoveryFileWatcher::file_deleted_callback(const std::filesystem::path& path) {
  std::unique_lock lock(mutex_);
  const auto recorded =
      std::find_if(recovery_files_.begin(), recovery_files_.end(),
                   [&path](const auto& entry) { return entry.second.path == path; });
  if (recorded == recovery_files_.end()) return;
  const RecoveryFile file = std::move(recorded->second);
  recovery_files_.erase(recorded);
  watched_package_ids_.erase(file.package_id);
  lock.unlock();
  LOGD("Calling on_recovery_file_deleted_ for %s", file.package_id.c_str());
  on_recovery_file_deleted_(file);
}

}  // namespace server
