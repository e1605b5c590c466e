// SPDX-License-Identifier: MIT
// The read-write application area, opened for changes: one run of vorna-pkg at a time holds it.
// Beside the packages it has the recovery directory, which the compile service watches, and
//
//   .vorna-pkg/           0700; no package id begins with a dot
//       lock              held as long as the area is open
//       <id>.<n>/         a tree on its way into its place, or out of it
//
// so that a tree gets there and away by one rename. One thread.
#ifndef TOOLS_VORNA_PKG_APPLICATION_AREA_H
#define TOOLS_VORNA_PKG_APPLICATION_AREA_H

#include <sys/types.h>

#include <string>

#include "base/package_registry.h"
#include "base/unique_fd.h"

namespace vorna_pkg {

inline constexpr const char* kApplications = host::kReadWriteApplications;
inline constexpr char kRecoveryDirectory[] = "/opt/usr/apps/.recovery";

class ApplicationArea {
 public:
  // Makes what is missing, and waits, after a word about it, while another run is at work.
  ApplicationArea();

  int packages() const { return packages_.get(); }
  int recovery() const { return recovery_.get(); }

  // The inode of a package's directory; 0 when there is none. Throws Error for anything else that
  // has the name.
  ino_t InodeOf(const std::string& package_id) const;

  // Makes an empty directory for a package to come; returns its name.
  std::string MakeStage(const std::string& package_id, host::UniqueFd* directory) const;
  // Puts a staged tree in the package's place; the tree that it replaces, if there is one, is then
  // under the stage's name. Durable when it returns.
  void Exchange(const std::string& stage, const std::string& package_id, bool replaces) const;
  // Takes a package's tree out of its place. Durable when it returns.
  void Withdraw(const std::string& package_id) const;
  // Deletes every tree that is in no package's place. What cannot be deleted now gets a warning,
  // and another try by the next run.
  void Sweep() const;

  std::string WorkPath(const std::string& stage) const;
  // Free space for everybody, in bytes.
  uint64_t FreeSpace() const;

 private:
  void Lock();
  std::string UnusedName(const std::string& package_id) const;
  void Move(int from, const std::string& old_name, int to, const std::string& new_name,
            unsigned flags) const;

  host::UniqueFd packages_;
  host::UniqueFd work_;
  host::UniqueFd recovery_;
  host::UniqueFd lock_;
};

}  // namespace vorna_pkg

#endif
