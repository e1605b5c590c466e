// SPDX-License-Identifier: MIT
#include "images/confinement.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/seccomp.h>
#include <pwd.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <memory>

#include "base/failure.h"
#include "images/landlock.h"

namespace host {
namespace {

constexpr char kUserName[] = "vorna-compiler";  // the distribution's package may create it
constexpr CompilerUser kNobody = {65534, 65534};
constexpr rlim_t kCpuSeconds = 660;  // a backstop: the parent stops a compiler before that

uint64_t EffectiveCapabilities() {
  struct __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  struct __user_cap_data_struct data[2] = {};
  if (syscall(SYS_capget, &header, data) != 0) return 0;
  return data[0].effective | uint64_t{data[1].effective} << 32;
}

// Whether this user name space knows the id: the one of an ordinary user knows only his own.
bool IsMapped(const char* map_path, uint64_t id) {
  std::ifstream map(map_path);
  uint64_t first;
  uint64_t outside;
  uint64_t count;
  while (map >> first >> outside >> count) {
    if (id >= first && id - first < count) return true;
  }
  return false;
}

struct FilterRelease {
  void operator()(void* filter) const { seccomp_release(filter); }
};

// No network, no processes besides its own threads, and none of the calls that reach other
// processes or have a history of holes and that no compiler needs.
std::vector<sock_filter> BuildFilter() {
  const std::unique_ptr<void, FilterRelease> filter(seccomp_init(SCMP_ACT_ALLOW));
  if (!filter) throw SystemFailure(ENOMEM, "system call filter");
  const uint32_t refuse = SCMP_ACT_ERRNO(EPERM);
  for (const int call :
       {SCMP_SYS(socket), SCMP_SYS(socketcall), SCMP_SYS(io_uring_setup), SCMP_SYS(fork),
        SCMP_SYS(vfork), SCMP_SYS(ptrace), SCMP_SYS(process_vm_readv), SCMP_SYS(process_vm_writev),
        SCMP_SYS(bpf), SCMP_SYS(perf_event_open), SCMP_SYS(userfaultfd), SCMP_SYS(keyctl),
        SCMP_SYS(add_key), SCMP_SYS(request_key), SCMP_SYS(unshare), SCMP_SYS(setns)}) {
    seccomp_rule_add(filter.get(), refuse, call, 0);
  }
  seccomp_rule_add(filter.get(), refuse, SCMP_SYS(clone), 1,
                   SCMP_A0_64(SCMP_CMP_MASKED_EQ, CLONE_THREAD, 0));
  // Its flags lie in memory, where a filter cannot look; without it threads are made by clone.
  seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0);
  const UniqueFd file(memfd_create("filter", MFD_CLOEXEC));
  std::vector<sock_filter> program;
  struct sock_filter instruction;
  if (!file || seccomp_export_bpf(filter.get(), file.get()) != 0) {
    throw SystemFailure(errno, "system call filter");
  }
  lseek(file.get(), 0, SEEK_SET);
  while (read(file.get(), &instruction, sizeof instruction) == sizeof instruction) {
    program.push_back(instruction);
  }
  return program;
}

// Never above what this process itself may have.
bool Limit(int resource, rlim_t value) {
  struct rlimit limit;
  if (syscall(SYS_prlimit64, 0, resource, nullptr, &limit) != 0) return false;
  const rlim_t allowed = value < limit.rlim_max ? value : limit.rlim_max;
  limit = {allowed, allowed};
  return syscall(SYS_prlimit64, 0, resource, &limit, nullptr) == 0;
}

// The package may be readable by its own user alone: the child keeps the right to read, which
// Landlock has already narrowed to that package.
bool KeepReadingOnly() {
  struct __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  constexpr uint32_t kRead = 1U << CAP_DAC_READ_SEARCH;
  const struct __user_cap_data_struct data[2] = {{kRead, kRead, kRead}, {0, 0, 0}};
  return syscall(SYS_capset, &header, data) == 0 &&
         prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_DAC_READ_SEARCH, 0, 0) == 0;
}

}  // namespace

std::optional<CompilerUser> FindCompilerUser() {
  constexpr uint64_t kNeeded = 1ULL << CAP_SETUID | 1ULL << CAP_SETGID | 1ULL << CAP_CHOWN |
                               1ULL << CAP_DAC_READ_SEARCH | 1ULL << CAP_KILL;
  if (geteuid() != 0 || (EffectiveCapabilities() & kNeeded) != kNeeded) return std::nullopt;
  char buffer[1024];
  struct passwd entry;
  struct passwd* found = nullptr;
  CompilerUser user = kNobody;
  if (getpwnam_r(kUserName, &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr) {
    user = {found->pw_uid, found->pw_gid};
  }
  if (!IsMapped("/proc/self/uid_map", user.uid) || !IsMapped("/proc/self/gid_map", user.gid)) {
    return std::nullopt;
  }
  return user;
}

Confinement::Confinement(const Allowance& allowance)
    : user_(FindCompilerUser()),
      landlock_(MakeLandlockRules(allowance.readable, allowance.writable)),
      memory_bytes_(allowance.memory_bytes),
      file_bytes_(allowance.file_bytes) {
  static const std::vector<sock_filter> filter = BuildFilter();
  filter_ = {static_cast<unsigned short>(filter.size()), const_cast<sock_filter*>(filter.data())};
}

bool Confinement::Enter(ChildStep* step) const {
  *step = ChildStep::kLimits;
  if (!LimitResources()) return false;
  *step = ChildStep::kUser;
  if (user_ && !ChangeUser()) return false;
  *step = ChildStep::kNoNewPrivileges;
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
  *step = ChildStep::kLandlock;
  if (landlock_ && syscall(SYS_landlock_restrict_self, landlock_.get(), 0) != 0) return false;
  *step = ChildStep::kSystemCalls;
  return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter_, 0, 0) == 0;
}

bool Confinement::LimitResources() const {
  // When memory runs short, the compiler is to go and not the daemon.
  const UniqueFd score(open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC));
  if (score && write(score.get(), "500", 3) < 0) errno = 0;
  return Limit(RLIMIT_CORE, 0) && Limit(RLIMIT_CPU, kCpuSeconds) &&
         Limit(RLIMIT_AS, memory_bytes_) && Limit(RLIMIT_FSIZE, file_bytes_);
}

bool Confinement::ChangeUser() const {
  // The C library's own functions would make every thread change, and there is only this one.
  const bool keep = static_cast<bool>(landlock_);
  if ((keep && prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) != 0) ||
      syscall(SYS_setgroups, 0, nullptr) != 0 ||
      syscall(SYS_setresgid, user_->gid, user_->gid, user_->gid) != 0 ||
      syscall(SYS_setresuid, user_->uid, user_->uid, user_->uid) != 0) {
    return false;
  }
  return !keep || KeepReadingOnly();
}

}  // namespace host
