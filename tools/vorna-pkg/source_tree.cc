// SPDX-License-Identifier: MIT
#include "source_tree.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/files.h"
#include "base/text.h"
#include "directories.h"
#include "error.h"
#include "images/image_manifest.h"
#include "install_record.h"
#include "manifest.h"

namespace vorna_pkg {
namespace {

// As deep as the host library looks for assemblies.
constexpr int kDeepest = 32;

// Native images are made here, for this machine; those of another would only be in the way.
bool IsNativeImage(const std::string& name) {
  const std::string directory = host::kImageDirectoryName;
  return name == directory || name.rfind(directory + ".", 0) == 0 ||
         host::EndsWith(name, ".ni.dll");
}

const char* KindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFIFO:
      return "a FIFO";
    case S_IFSOCK:
      return "a socket";
    default:
      return "a device file";
  }
}

}  // namespace

SourceTree::SourceTree(const std::string& path)
    : path_(path), directory_(host::OpenDirectory(path)) {
  if (!directory_) throw SystemError(path);
  while (path_.size() > 1 && path_.back() == '/') path_.pop_back();
  std::string text;
  const int error = host::ReadFileAt(directory_.get(), kManifestName, kLargestManifest, &text);
  if (error == 0) {
    manifest_ = text;
  } else if (error != ENOENT) {
    throw SystemError(manifest_path(), error);
  }
  const std::vector<std::string> names = NamesIn(directory_.get(), path);
  const bool is_published = std::any_of(names.begin(), names.end(), [](const std::string& name) {
    return host::EndsWith(name, kRuntimeConfigSuffix);
  });
  if (is_published || !manifest_) prefix_ = kBinPrefix;
  Scan(directory_.get(), "", 0);
}

std::string SourceTree::manifest_path() const {
  return path_ + "/" + kManifestName;
}

bool SourceTree::HasFile(const std::string& path_in_package) const {
  return std::any_of(entries_.begin(), entries_.end(), [&](const SourceEntry& entry) {
    return entry.to == path_in_package && entry.type == S_IFREG;
  });
}

std::string SourceTree::SourceOf(const std::string& path_in_package) const {
  return path_in_package.substr(prefix_.size());
}

std::vector<std::string> SourceTree::RuntimeConfigs() const {
  constexpr std::string_view kPrefix = kBinPrefix;
  constexpr std::string_view kSuffix = kRuntimeConfigSuffix;
  std::vector<std::string> names;
  for (const SourceEntry& entry : entries_) {
    const auto [directory, name] = SplitPath(entry.to);
    if (entry.type == S_IFREG && directory + "/" == kPrefix && host::EndsWith(name, kSuffix)) {
      names.push_back(name.substr(0, name.size() - kSuffix.size()));
    }
  }
  return names;
}

void SourceTree::Scan(int directory, const std::string& path, int depth) {
  for (const std::string& name : NamesIn(directory, path_ + "/" + path)) {
    const bool is_ours = path.empty() && (name == kManifestName || name == kInstallRecordName);
    if (!is_ours && !IsNativeImage(name)) AddEntry(directory, path + name, depth);
  }
}

void SourceTree::AddEntry(int directory, const std::string& path, int depth) {
  const std::string shown_path = path_ + "/" + path;
  const std::string name = SplitPath(path).second;
  struct stat status;
  if (fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    throw SystemError(shown_path);
  }
  if (host::Visible(name) != name) throw Error(shown_path + ": its name is no text of one line");
  const mode_t type = status.st_mode & S_IFMT;
  entries_.push_back({path, prefix_ + path, type});
  if (type == S_IFDIR) {
    const host::UniqueFd child = host::OpenDirectoryAt(directory, name);
    if (!child) throw SystemError(shown_path);
    if (depth == kDeepest) throw Error(shown_path + ": no package is nested as deep as this");
    Scan(child.get(), path + "/", depth + 1);
  } else if (type == S_IFLNK) {
    CheckLink(directory_.get(), path, shown_path);
  } else {
    CheckFile(shown_path, status.st_mode);
    ++files_;
    bytes_ += static_cast<uint64_t>(status.st_size);
  }
}

void SourceTree::CheckFile(const std::string& path, mode_t mode) const {
  if (!S_ISREG(mode)) {
    throw Error(path + ": it is " + KindOf(mode) + "; a package has files, directories and links");
  }
  if ((mode & (S_ISUID | S_ISGID)) != 0) {
    throw Error(path + ": it would run as another user or group: chmod ug-s it");
  }
}

void CheckLink(int directory, const std::string& path, const std::string& shown_path) {
  // The kernel follows the whole chain and tells; comparing texts can be led astray by a link in
  // the middle.
  struct open_how how = {};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  const host::UniqueFd target(
      static_cast<int>(syscall(SYS_openat2, directory, path.c_str(), &how, sizeof how)));
  if (target) return;
  if (errno == EXDEV) throw Error(shown_path + ": the link leads out of the package");
  if (errno == ENOENT) throw Error(shown_path + ": the link leads nowhere");
  throw SystemError(shown_path + ": cannot follow the link");
}

}  // namespace vorna_pkg
