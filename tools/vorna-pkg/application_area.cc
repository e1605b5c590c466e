// SPDX-License-Identifier: MIT
#include "application_area.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "base/files.h"
#include "directories.h"
#include "error.h"
#include "interruption.h"
#include "messages.h"

namespace vorna_pkg {
namespace {

using host::UniqueFd;

constexpr char kWorkName[] = ".vorna-pkg";
constexpr char kRecoveryName[] = ".recovery";
constexpr char kLockName[] = "lock";
constexpr mode_t kPrivate = 0700;

UniqueFd OpenOrMake(int parent, const std::string& name, mode_t mode) {
  UniqueFd directory = host::OpenDirectoryAt(parent, name);
  if (!directory && errno == ENOENT) directory = MakeDirectoryAt(parent, name, mode);
  // Another run may have been faster.
  if (!directory && errno == EEXIST) directory = host::OpenDirectoryAt(parent, name);
  if (!directory) throw SystemError(std::string(kApplications) + "/" + name);
  return directory;
}

}  // namespace

ApplicationArea::ApplicationArea() {
  std::error_code error;
  std::filesystem::create_directories(kApplications, error);
  if (error) throw SystemError(kApplications, error.value());
  packages_ = host::OpenDirectory(kApplications);
  if (!packages_) throw SystemError(kApplications);
  work_ = OpenOrMake(packages_.get(), kWorkName, kPrivate);
  recovery_ = OpenOrMake(packages_.get(), kRecoveryName, kDirectoryMode);
  Lock();
}

void ApplicationArea::Lock() {
  lock_ = UniqueFd(openat(work_.get(), kLockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!lock_) throw SystemError(WorkPath(kLockName));
  if (flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return;
  if (errno == EWOULDBLOCK) {
    Complain("waiting for another vorna-pkg to end");
    if (flock(lock_.get(), LOCK_EX) == 0) return;
    ThrowIfInterrupted();
  }
  throw SystemError(WorkPath(kLockName));
}

ino_t ApplicationArea::InodeOf(const std::string& package_id) const {
  struct stat status;
  const std::string path = std::string(kApplications) + "/" + package_id;
  if (fstatat(packages(), package_id.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return 0;
    throw SystemError(path);
  }
  if (!S_ISDIR(status.st_mode)) throw Error(path + " is no directory: move it away first");
  return status.st_ino;
}

std::string ApplicationArea::MakeStage(const std::string& package_id, UniqueFd* directory) const {
  std::string name = UnusedName(package_id);
  *directory = MakeDirectoryAt(work_.get(), name, kDirectoryMode);
  if (!*directory) throw SystemError(WorkPath(name));
  return name;
}

void ApplicationArea::Exchange(const std::string& stage, const std::string& package_id,
                               bool replaces) const {
  Move(work_.get(), stage, packages(), package_id, replaces ? RENAME_EXCHANGE : RENAME_NOREPLACE);
}

void ApplicationArea::Withdraw(const std::string& package_id) const {
  Move(packages(), package_id, work_.get(), UnusedName(package_id), RENAME_NOREPLACE);
}

void ApplicationArea::Sweep() const {
  for (const std::string& name : NamesIn(work_.get(), WorkPath(""))) {
    if (name == kLockName) continue;
    if (const int error = RemoveTreeAt(work_.get(), name)) {
      Warn("cannot delete " + WorkPath(name) + ": " + host::ErrorText(error) +
           "; the next run tries again");
    }
  }
}

std::string ApplicationArea::WorkPath(const std::string& stage) const {
  return std::string(kApplications) + "/" + kWorkName + "/" + stage;
}

uint64_t ApplicationArea::FreeSpace() const {
  struct statvfs status;
  if (fstatvfs(work_.get(), &status) != 0) throw SystemError(kApplications);
  if (status.f_blocks == 0) return UINT64_MAX;  // without a limit, such as some tmpfs
  return static_cast<uint64_t>(status.f_frsize) * status.f_bavail;
}

// What an earlier run could not delete may still be there.
std::string ApplicationArea::UnusedName(const std::string& package_id) const {
  struct stat status;
  for (int number = 1;; ++number) {
    std::string name = package_id + "." + std::to_string(number);
    if (fstatat(work_.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return name;
  }
}

void ApplicationArea::Move(int from, const std::string& old_name, int to,
                           const std::string& new_name, unsigned flags) const {
  if (renameat2(from, old_name.c_str(), to, new_name.c_str(), flags) != 0) {
    const std::string what = "cannot move " + old_name + " to " + new_name + " in " + kApplications;
    if (errno == EINVAL && flags == RENAME_EXCHANGE) {
      throw Error(what + ": its file system cannot; uninstall the package, then install it");
    }
    throw SystemError(what);
  }
  // The change is made, for everybody who looks: that it may not survive a power cut does not undo
  // it.
  try {
    SyncDirectory(packages(), kApplications);
    SyncDirectory(work_.get(), WorkPath(""));
  } catch (const Error& error) {
    Warn(error.what());
  }
}

}  // namespace vorna_pkg
