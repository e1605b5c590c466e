// SPDX-License-Identifier: MIT
// What a compiler process is kept from, for it parses files that strangers wrote: another user,
// no new privileges, bounded memory, time and files, no network, no further processes, and, where
// the kernel has Landlock, only the files that a compile needs. Prepared by the parent, entered by
// the child between fork and exec. Immutable once made.
#ifndef PLATFORM_HOST_IMAGES_CONFINEMENT_H
#define PLATFORM_HOST_IMAGES_CONFINEMENT_H

#include <linux/filter.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/unique_fd.h"
#include "images/child_start.h"

namespace host {

struct CompilerUser {
  uid_t uid;
  gid_t gid;
};

// The user that compilers run as; nothing where this process may not change to another one.
std::optional<CompilerUser> FindCompilerUser();

class Confinement {
 public:
  struct Allowance {
    std::vector<std::string> readable;  // directories and files; one that is missing is passed over
    std::string writable;               // a directory
    uint64_t memory_bytes;
    uint64_t file_bytes;
  };
  explicit Confinement(const Allowance& allowance);

  // The child's side: system calls only. On failure errno and the step tell what did not work.
  bool Enter(ChildStep* step) const;

 private:
  bool LimitResources() const;
  bool ChangeUser() const;

  std::optional<CompilerUser> user_;
  UniqueFd landlock_;  // empty: the kernel has none
  struct sock_fprog filter_;
  uint64_t memory_bytes_;
  uint64_t file_bytes_;
};

}  // namespace host

#endif
