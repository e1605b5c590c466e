// SPDX-License-Identifier: MIT
#include "images/staging.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>

#include "base/failure.h"
#include "base/files.h"
#include "base/host_log.h"
#include "base/package_registry.h"
#include "images/assembly_tree.h"

namespace host {
namespace {

constexpr char kLockName[] = "lock";

uint64_t MountOf(int directory) {
  struct statx status = {};
  statx(directory, "", AT_EMPTY_PATH, STATX_MNT_ID, &status);
  return status.stx_mnt_id;
}

// The directory that holds every staging area of a place. Made by this library and by nobody else:
// where strangers can write, one that they made is refused.
UniqueFd OpenStagingDirectory(int place, bool create) {
  if (create && mkdirat(place, kStagingDirectoryName, 0711) != 0 && errno != EEXIST) {
    return UniqueFd();
  }
  UniqueFd directory = OpenDirectoryAt(place, kStagingDirectoryName);
  struct stat status;
  if (!directory || fstat(directory.get(), &status) != 0) return UniqueFd();
  if (status.st_uid != geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    errno = EPERM;
    return UniqueFd();
  }
  return directory;
}

std::string RandomName() {
  uint64_t number = 0;
  if (getrandom(&number, sizeof number, 0) != sizeof number) throw SystemFailure(errno, "random");
  return Format("%016llx", static_cast<unsigned long long>(number));
}

std::vector<std::string> NamesIn(int directory) {
  std::vector<std::string> names;
  UniqueFd own = OpenDirectoryAt(directory, ".");
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(own ? fdopendir(own.get()) : nullptr, &closedir);
  if (!stream) return names;
  own.Release();
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  return names;
}

}  // namespace

PackageLock::PackageLock(const std::string& package) {
  const UniqueFd place = OpenDirectory(kReadWriteApplications);
  const UniqueFd staging = place ? OpenStagingDirectory(place.get(), true) : UniqueFd();
  if (!staging) return;
  file_ =
      UniqueFd(openat(staging.get(), kLockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file_) return;
  // A byte a package: two that share one merely wait for each other. Such a lock belongs to this
  // open file, so that it also holds between threads.
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(std::hash<std::string>{}(package) >> 2);
  lock.l_len = 1;
  while (fcntl(file_.get(), F_OFD_SETLKW, &lock) != 0) {
    if (errno != EINTR) throw SystemFailure(errno, "lock of " + package);
  }
}

StagingArea::StagingArea(const std::vector<std::string>& places, int directory)
    : name_(RandomName()) {
  const uint64_t mount = MountOf(directory);
  for (const std::string& path : places) {
    place_ = OpenDirectory(path);
    if (!place_ || MountOf(place_.get()) != mount) continue;
    while (!TryCreate(place_.get(), path)) {
    }
    return;
  }
  throw Failure(NI_ERROR_SYSTEM, "no place for staging on the package's file system");
}

// False when another area's end took the place's directory away in between.
bool StagingArea::TryCreate(int place, const std::string& place_path) {
  path_ = place_path + "/" + kStagingDirectoryName;
  staging_ = OpenStagingDirectory(place, true);
  // A sweep holds this lock while it looks, so that it meets no area between its two steps here.
  if (!staging_ || flock(staging_.get(), LOCK_EX) != 0) throw SystemFailure(errno, path_);
  path_ += "/" + name_;
  if (mkdirat(staging_.get(), name_.c_str(), 0711) != 0) {
    if (errno == ENOENT) return false;
    throw SystemFailure(errno, path_);
  }
  directory_ = OpenDirectoryAt(staging_.get(), name_);
  if (!directory_ || flock(directory_.get(), LOCK_EX | LOCK_NB) != 0) {
    throw SystemFailure(errno, path_);
  }
  flock(staging_.get(), LOCK_UN);
  return true;
}

StagingArea::~StagingArea() {
  if (const int error = RemoveTree(staging_.get(), name_)) {
    HOST_LOG(WARNING, "Cannot remove %s: %s", path_.c_str(), ErrorText(error).c_str());
  }
  // Goes when it is empty: never in the read-write area, where the lock is.
  unlinkat(place_.get(), kStagingDirectoryName, AT_REMOVEDIR);
}

bool StagingArea::HasRoomFor(uint64_t bytes) const {
  const UniqueFd probe(
      openat(directory_.get(), "room", O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  const bool room = probe && posix_fallocate(probe.get(), 0, static_cast<off_t>(bytes)) == 0;
  unlinkat(directory_.get(), "room", 0);
  return room;
}

void SweepStaging(const std::string& place_path) {
  const UniqueFd place = OpenDirectory(place_path);
  const UniqueFd staging = place ? OpenStagingDirectory(place.get(), false) : UniqueFd();
  if (!staging || flock(staging.get(), LOCK_EX) != 0) return;
  for (const std::string& name : NamesIn(staging.get())) {
    const UniqueFd area = OpenDirectoryAt(staging.get(), name);
    if (!area || flock(area.get(), LOCK_EX | LOCK_NB) != 0) continue;
    if (const int error = RemoveTree(staging.get(), name)) {
      HOST_LOG(WARNING, "Cannot remove %s/%s/%s: %s", place_path.c_str(), kStagingDirectoryName,
               name.c_str(), ErrorText(error).c_str());
    }
  }
}

int RemoveTree(int parent, const std::string& name) {
  const UniqueFd directory = OpenDirectoryAt(parent, name);
  if (!directory) {
    if (errno == ENOENT) return 0;
    return unlinkat(parent, name.c_str(), 0) == 0 ? 0 : errno;
  }
  int result = 0;
  for (const std::string& entry : NamesIn(directory.get())) {
    if (unlinkat(directory.get(), entry.c_str(), 0) == 0 || errno == ENOENT) continue;
    if (errno != EISDIR && errno != EPERM) {
      result = errno;
    } else if (const int error = RemoveTree(directory.get(), entry)) {
      result = error;
    }
  }
  if (unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT && result == 0) {
    result = errno;
  }
  return result;
}

}  // namespace host
