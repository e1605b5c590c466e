// SPDX-License-Identifier: MIT
#include "images/landlock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace host {
namespace {

// The kernel's own structures and bits up to version 6 of the interface; the distribution's header
// stops at 2.
struct RulesetAttribute {
  uint64_t handled_access_fs;
  uint64_t handled_access_net;  // from 4
  uint64_t scoped;              // from 6
};

struct __attribute__((packed)) PathBeneathAttribute {
  uint64_t allowed_access;
  int32_t parent_fd;
};

constexpr int kRulePathBeneath = 1;
constexpr uint32_t kAskVersion = 1;
constexpr uint64_t kExecute = 1 << 0;
constexpr uint64_t kReadFile = 1 << 2;
constexpr uint64_t kReadDirectory = 1 << 3;
constexpr uint64_t kWriteFile = 1 << 1;
constexpr uint64_t kRemoveFile = 1 << 5;
constexpr uint64_t kMakeRegular = 1 << 8;
constexpr uint64_t kRefer = 1 << 13;        // from 2
constexpr uint64_t kTruncate = 1 << 14;     // from 3
constexpr uint64_t kIoctlDevice = 1 << 15;  // from 5
constexpr uint64_t kEverySince1 = (1 << 13) - 1;
constexpr uint64_t kNetBindAndConnect = 3;
constexpr uint64_t kScopeAbstractSocketsAndSignals = 3;
constexpr uint64_t kAccessOfFiles = kExecute | kReadFile | kWriteFile | kTruncate | kIoctlDevice;

uint64_t HandledBy(long version) {
  uint64_t handled = kEverySince1;
  if (version >= 2) handled |= kRefer;
  if (version >= 3) handled |= kTruncate;
  if (version >= 5) handled |= kIoctlDevice;
  return handled;
}

void Allow(int rules, const std::string& path, uint64_t access) {
  const UniqueFd file(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status;
  if (!file || fstat(file.get(), &status) != 0) return;
  if (!S_ISDIR(status.st_mode)) access &= kAccessOfFiles;
  const PathBeneathAttribute rule = {access, file.get()};
  syscall(SYS_landlock_add_rule, rules, kRulePathBeneath, &rule, 0);
}

}  // namespace

UniqueFd MakeLandlockRules(const std::vector<std::string>& readable, const std::string& writable) {
  const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, kAskVersion);
  if (version < 1) return UniqueFd();
  const uint64_t handled = HandledBy(version);
  const RulesetAttribute attribute = {handled, version >= 4 ? kNetBindAndConnect : 0,
                                      version >= 6 ? kScopeAbstractSocketsAndSignals : 0};
  size_t size = offsetof(RulesetAttribute, handled_access_net);
  if (version >= 4) size = offsetof(RulesetAttribute, scoped);
  if (version >= 6) size = sizeof attribute;
  UniqueFd rules(static_cast<int>(syscall(SYS_landlock_create_ruleset, &attribute, size, 0)));
  if (!rules) return rules;
  // What any program needs to start, and the runtime in the compiler to see the machine's size.
  for (const char* path :
       {"/lib", "/lib64", "/usr/lib", "/usr/lib64", "/etc/ld.so.cache", "/dev/null", "/dev/zero",
        "/dev/urandom", "/proc", "/sys/fs/cgroup", "/sys/devices/system"}) {
    Allow(rules.get(), path, kExecute | kReadFile | kReadDirectory);
  }
  for (const std::string& path : readable) {
    Allow(rules.get(), path, kExecute | kReadFile | kReadDirectory);
  }
  Allow(
      rules.get(), writable,
      handled & (kReadFile | kReadDirectory | kWriteFile | kRemoveFile | kMakeRegular | kTruncate));
  return rules;
}

}  // namespace host
