// SPDX-License-Identifier: MIT
/* Scheduling groups for processes. */
#ifndef PLATFORM_CPU_BOOST_H
#define PLATFORM_CPU_BOOST_H

#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

struct CpuBoostRequest {
  int32_t kind;   /* always 7: a request for one process */
  int32_t action; /* 1 joins the group, 2 leaves it for the group that the process came from */
  int32_t group;  /* 1 background, 2 running */
  int32_t reserved1;
  int32_t reserved2;
};

/* Moves a process between scheduling groups. 0 on success. */
int cpu_boost_pid_request(pid_t pid, const struct CpuBoostRequest* request);

#ifdef __cplusplus
}
#endif

#endif
