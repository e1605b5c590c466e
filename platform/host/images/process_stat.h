// SPDX-License-Identifier: MIT
// What /proc tells about a child process. Stateless; any thread.
#ifndef PLATFORM_HOST_IMAGES_PROCESS_STAT_H
#define PLATFORM_HOST_IMAGES_PROCESS_STAT_H

#include <sys/types.h>

#include <optional>

namespace host {

// User and system time, in clock ticks.
std::optional<unsigned long long> CpuTicksOf(pid_t pid);

// Whether no thread of the process runs, waits for the processor or is stopped.
bool AllThreadsSleep(pid_t pid);

// How many processes of this process's control group the kernel's memory killer has taken so far;
// of the whole machine where the group does not say.
unsigned long long MemoryKills();

}  // namespace host

#endif
