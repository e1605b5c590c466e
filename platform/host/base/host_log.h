// SPDX-License-Identifier: MIT
// The host library's own log lines. They go through the exported log_print, so that a program which
// replaces that function sees them too. Any thread.
#ifndef PLATFORM_HOST_BASE_HOST_LOG_H
#define PLATFORM_HOST_BASE_HOST_LOG_H

#include "platform/log.h"

#define HOST_LOG(priority, ...) \
  log_print(LOG_ID_MAIN, LOG_PRIORITY_##priority, "VORNA_PLATFORM", __VA_ARGS__)

#endif
