// SPDX-License-Identifier: MIT
#include "images/image_removal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "base/failure.h"
#include "base/files.h"
#include "base/host_log.h"
#include "images/assembly_tree.h"
#include "images/staging.h"

namespace host {
namespace {

// Image directories leave the package by one rename each, so that nobody meets half a set; they are
// deleted with the staging area. Where there can be none, on a full disk say, they are deleted in
// place.
class Removal {
 public:
  Removal(const CompileTarget& target, int root) {
    try {
      staging_ = std::make_unique<StagingArea>(target.places, root);
    } catch (const Failure& failure) {
      HOST_LOG(DEBUG, "%s", failure.what());
    }
  }

  // 0 or errno.
  int RemoveDirectory(int parent, const std::string& name) {
    const std::string old_name = "old." + std::to_string(count_++);
    if (staging_ && renameat(parent, name.c_str(), staging_->directory(), old_name.c_str()) == 0) {
      return 0;
    }
    return RemoveTree(parent, name);
  }

 private:
  std::unique_ptr<StagingArea> staging_;
  int count_ = 0;
};

}  // namespace

void RemoveImages(const CompileTarget& target) {
  const std::string& root = target.package->root;
  const PackageLock lock(target.name());
  const UniqueFd directory = OpenTargetDirectory(root);
  if (!directory) throw SystemFailure(errno, root);
  Removal removal(target, directory.get());
  int result = 0;
  VisitImages(directory.get(), root,
              [&](int parent, const std::string& path, const std::string& name, mode_t type) {
                int error = 0;
                if (name == kStagingDirectoryName) {
                  SweepStaging(path);
                  unlinkat(parent, name.c_str(), AT_REMOVEDIR);
                } else if (type == S_IFDIR) {
                  error = removal.RemoveDirectory(parent, name);
                } else if (unlinkat(parent, name.c_str(), 0) != 0) {
                  error = errno;
                }
                if (error == 0) return;
                HOST_LOG(ERROR, "Cannot remove %s/%s: %s", path.c_str(), name.c_str(),
                         ErrorText(error).c_str());
                result = error;
              });
  if (result != 0) throw SystemFailure(result, root);
}

}  // namespace host
