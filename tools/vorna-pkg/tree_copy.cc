// SPDX-License-Identifier: MIT
#include "tree_copy.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "application_area.h"
#include "base/files.h"
#include "digest.h"
#include "directories.h"
#include "install_record.h"
#include "interruption.h"
#include "messages.h"

namespace vorna_pkg {
namespace {

using host::UniqueFd;

constexpr mode_t kFileMode = 0644;
constexpr mode_t kProgramMode = 0755;

UniqueFd OpenParent(int root, const std::string& path) {
  UniqueFd parent = host::OpenDirectoryBeneath(root, SplitPath(path).first);
  if (!parent) throw SystemError(path);
  return parent;
}

UniqueFd CreateFile(int root, const std::string& path, mode_t mode) {
  const UniqueFd parent = OpenParent(root, path);
  UniqueFd file(openat(parent.get(), SplitPath(path).second.c_str(),
                       O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
  if (!file || fchmod(file.get(), mode) != 0) throw SystemError(path);
  return file;
}

// Shares the blocks where the file system can, copies inside the kernel otherwise.
ssize_t CopySome(int from, int to, size_t length) {
  const ssize_t count = copy_file_range(from, nullptr, to, nullptr, length, 0);
  const bool is_impossible = count < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS ||
                                           errno == EOPNOTSUPP || errno == EPERM);
  return is_impossible ? sendfile(to, from, nullptr, length) : count;
}

class PackageCopy {
 public:
  PackageCopy(const PackagePlan& plan, int root)
      : source_(plan.source), root_(root), progress_(plan.source.files(), plan.source.bytes()) {}

  void CopyEntries() {
    const UniqueFd bin = MakeDirectoryAt(root_, "bin", kDirectoryMode);
    if (!bin) throw SystemError("bin");
    for (const SourceEntry& entry : source_.entries()) {
      ThrowIfInterrupted();
      if (entry.type == S_IFREG) {
        CopyFile(entry);
      } else if (entry.type == S_IFLNK) {
        CopyLink(entry);
      } else if (entry.to + "/" != kBinPrefix) {
        const UniqueFd parent = OpenParent(root_, entry.to);
        if (!MakeDirectoryAt(parent.get(), SplitPath(entry.to).second, kDirectoryMode)) {
          throw SystemError(entry.to);
        }
      }
    }
    // Once more where nobody else writes: the links that were looked at may not be those copied.
    for (const auto& [path, target] : record_.links) CheckLink(root_, path, path);
  }

  void WriteText(const std::string& name, const std::string& text) {
    const UniqueFd file = CreateFile(root_, name, kFileMode);
    if (const int error = host::WriteAll(file.get(), text)) throw SystemError(name, error);
    record_.files[name] = {text.size(), Sha256Of(text)};
  }

  const InstallRecord& record() const { return record_; }

 private:
  std::string ShownPath(const SourceEntry& entry) const {
    return source_.path() + "/" + entry.from;
  }

  UniqueFd OpenSource(const SourceEntry& entry) const {
    UniqueFd parent = host::OpenDirectoryBeneath(source_.directory(), SplitPath(entry.from).first);
    if (!parent) throw SystemError(ShownPath(entry));
    return parent;
  }

  void CopyFile(const SourceEntry& entry) {
    struct stat before;
    struct stat after;
    const UniqueFd from =
        host::OpenRegularFileAt(OpenSource(entry).get(), SplitPath(entry.from).second, &before);
    if (!from) throw SystemError(ShownPath(entry));
    const bool is_program = (before.st_mode & S_IXUSR) != 0;
    const UniqueFd to = CreateFile(root_, entry.to, is_program ? kProgramMode : kFileMode);
    auto rest = static_cast<uint64_t>(before.st_size);
    while (rest > 0) {
      const ssize_t count = CopySome(from.get(), to.get(), std::min<uint64_t>(rest, SSIZE_MAX));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) throw SystemError("cannot copy " + ShownPath(entry));
      if (count == 0) break;
      rest -= static_cast<uint64_t>(count);
    }
    if (rest != 0 || fstat(from.get(), &after) != 0 || after.st_size != before.st_size ||
        host::ModificationTimeNs(after) != host::ModificationTimeNs(before)) {
      throw Error(ShownPath(entry) + ": it changed while it was copied: try again");
    }
    record_.files[entry.to] = {static_cast<uint64_t>(before.st_size), Sha256OfFile(to.get())};
    progress_.FileIsDone(static_cast<uint64_t>(before.st_size));
  }

  void CopyLink(const SourceEntry& entry) {
    std::string target(PATH_MAX, '\0');
    const ssize_t length = readlinkat(OpenSource(entry).get(), SplitPath(entry.from).second.c_str(),
                                      target.data(), target.size());
    if (length < 0) throw SystemError(ShownPath(entry));
    target.resize(static_cast<size_t>(length));
    const UniqueFd parent = OpenParent(root_, entry.to);
    if (symlinkat(target.c_str(), parent.get(), SplitPath(entry.to).second.c_str()) != 0) {
      throw SystemError(entry.to);
    }
    record_.links[entry.to] = target;
  }

  const SourceTree& source_;
  int root_;
  Progress progress_;
  InstallRecord record_;
};

}  // namespace

void CopyPackage(const PackagePlan& plan, int root) {
  PackageCopy copy(plan, root);
  copy.CopyEntries();
  copy.WriteText(kManifestName, plan.manifest);
  copy.WriteText(kInstallRecordName, copy.record().Serialize());
  // One journal commit for all files, rather than one for each.
  if (syncfs(root) != 0) throw SystemError(kApplications);
}

}  // namespace vorna_pkg
