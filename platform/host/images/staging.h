// SPDX-License-Identifier: MIT
// Where the results of a compile wait until they are committed, all of a directory or none.
//
//   <place>/.native_image.staging/            this library's own, not for others
//       lock                                  the packages' locks, a byte each; see PackageLock
//       <random>/                             one compile; locked while it is alive
//           out.<n>/image                     written by a compiler, not believed
//           set.<n>/X.ni.dll, manifest.json   checked copies; become DIR/.native_image
//
// The place is the application area, outside of every package, so that no scan of a package sees
// what is staged and a sweep need not search packages; it is the package itself only where that is
// a file system of its own. One thread uses a staging area; several areas may be alive at once.
#ifndef PLATFORM_HOST_IMAGES_STAGING_H
#define PLATFORM_HOST_IMAGES_STAGING_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/unique_fd.h"
#include "images/image_manifest.h"

namespace host {

// Held for a commit and for a removal of one package's images, across processes. Kept in the
// read-write area; where that cannot be written, nothing is locked.
class PackageLock {
 public:
  explicit PackageLock(const std::string& package);

 private:
  UniqueFd file_;
};

// The images and the manifest of one directory, not yet committed.
class StagedSet {
 public:
  StagedSet(int staging, std::string name, int directory);

  // Copies what a compiler wrote, so that the compiler cannot touch it any more.
  ImageIdentity Add(const std::string& image_name, int source);
  int directory() const { return directory_.get(); }
  void Remove(const std::string& image_name);
  void WriteManifest(const ImageManifest& manifest);
  // Exchanges the set with what the directory has. Durable when it returns.
  void Commit(int staging, int directory, const std::string& directory_path);

 private:
  UniqueFd CreateFile(const std::string& name) const;
  void Finish(int file, const std::string& name, mode_t mode) const;

  std::string name_;
  UniqueFd directory_;
  mode_t mode_;
  uid_t owner_;
  gid_t group_;
  std::string label_;  // Smack's, where it is in use
};

class StagingArea {
 public:
  // In the first of the places that lies on the same mount as the directory.
  StagingArea(const std::vector<std::string>& places, int directory);
  ~StagingArea();  // abandons what is not committed
  StagingArea(const StagingArea&) = delete;
  StagingArea& operator=(const StagingArea&) = delete;

  int directory() const { return directory_.get(); }
  const std::string& path() const { return path_; }
  // Whether that many more bytes can be written here.
  bool HasRoomFor(uint64_t bytes) const;

 private:
  bool TryCreate(int place, const std::string& place_path);

  UniqueFd place_;
  UniqueFd staging_;  // the place's kStagingDirectoryName
  UniqueFd directory_;
  std::string name_;
  std::string path_;
};

// Removes what dead compiles left in a place; live ones are left alone.
void SweepStaging(const std::string& place);

// Removes a directory and all that is in it, following no link. 0 or errno.
int RemoveTree(int parent, const std::string& name);

}  // namespace host

#endif
