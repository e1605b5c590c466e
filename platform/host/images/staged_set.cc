// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "base/failure.h"
#include "base/files.h"
#include "images/staging.h"

namespace host {
namespace {

constexpr char kSmackLabel[] = "security.SMACK64";
constexpr size_t kCopyBuffer = 1 << 18;

struct ChecksumFree {
  void operator()(GChecksum* checksum) const { g_checksum_free(checksum); }
};

void Sync(int file, const std::string& name) {
  if (fsync(file) != 0) throw SystemFailure(errno, "sync of " + name);
}

}  // namespace

StagedSet::StagedSet(int staging, std::string name, int directory) : name_(std::move(name)) {
  struct stat status;
  if (fstat(directory, &status) != 0) throw SystemFailure(errno, name_);
  mode_ = status.st_mode & 0777;
  owner_ = status.st_uid;
  group_ = status.st_gid;
  char label[256];
  const ssize_t length = fgetxattr(directory, kSmackLabel, label, sizeof label);
  if (length > 0) label_.assign(label, static_cast<size_t>(length));
  if (mkdirat(staging, name_.c_str(), 0700) != 0) throw SystemFailure(errno, name_);
  directory_ = OpenDirectoryAt(staging, name_);
  if (!directory_) throw SystemFailure(errno, name_);
}

UniqueFd StagedSet::CreateFile(const std::string& name) const {
  UniqueFd file(openat(directory_.get(), name.c_str(),
                       O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) throw SystemFailure(errno, name);
  return file;
}

// Owner, mode and label follow the directory for which the set is meant: a new file would have
// those of this process, which are of no use to the application.
void StagedSet::Finish(int file, const std::string& name, mode_t mode) const {
  if ((owner_ != geteuid() || group_ != getegid()) && fchown(file, owner_, group_) != 0) {
    throw SystemFailure(errno, "owner of " + name);
  }
  if (fchmod(file, mode) != 0) throw SystemFailure(errno, "mode of " + name);
  if (!label_.empty()) fsetxattr(file, kSmackLabel, label_.data(), label_.size(), 0);
  Sync(file, name);
}

ImageIdentity StagedSet::Add(const std::string& image_name, int source) {
  const UniqueFd file = CreateFile(image_name);
  const std::unique_ptr<GChecksum, ChecksumFree> checksum(g_checksum_new(G_CHECKSUM_SHA256));
  std::string buffer(kCopyBuffer, '\0');
  ImageIdentity identity;
  for (;;) {
    const ssize_t count = pread(source, buffer.data(), buffer.size(), identity.size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw SystemFailure(errno, "read of " + image_name);
    if (count == 0) break;
    const std::string_view piece(buffer.data(), static_cast<size_t>(count));
    if (const int error = WriteAll(file.get(), piece)) throw SystemFailure(error, image_name);
    g_checksum_update(checksum.get(), reinterpret_cast<const guchar*>(piece.data()), count);
    identity.size += count;
  }
  Finish(file.get(), image_name, mode_ & 0666);
  struct stat status;
  if (fstat(file.get(), &status) != 0) throw SystemFailure(errno, image_name);
  identity.modified = ModificationTimeNs(status);
  identity.sha256 = g_checksum_get_string(checksum.get());
  return identity;
}

void StagedSet::Remove(const std::string& image_name) {
  unlinkat(directory_.get(), image_name.c_str(), 0);
}

void StagedSet::WriteManifest(const ImageManifest& manifest) {
  const UniqueFd file = CreateFile(kManifestFileName);
  if (const int error = WriteAll(file.get(), manifest.Serialize())) {
    throw SystemFailure(error, kManifestFileName);
  }
  Finish(file.get(), kManifestFileName, mode_ & 0666);
}

void StagedSet::Commit(int staging, int directory, const std::string& directory_path) {
  const std::string target = directory_path + "/" + kImageDirectoryName;
  Finish(directory_.get(), target, mode_);
  // Now everything in the set is on the disk, and one rename shows it.
  int moved = renameat2(staging, name_.c_str(), directory, kImageDirectoryName, RENAME_NOREPLACE);
  if (moved != 0 && errno == EEXIST) {
    moved = renameat2(staging, name_.c_str(), directory, kImageDirectoryName, RENAME_EXCHANGE);
  }
  if (moved != 0) throw SystemFailure(errno, "commit of " + target);
  Sync(directory, directory_path);
  Sync(staging, "staging");
}

}  // namespace host
