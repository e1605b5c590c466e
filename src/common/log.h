// SPDX-License-Identifier: MIT
// The one way to the platform log. Every line reads "source: function(line) > text"; tag and source
// name belong to the module and are set by the build (VORNA_LOG_TAG, VORNA_LOG_SOURCE), so that
// files can be split without changing what operators search for. Any thread may log.
#pragma once

#include "platform/log.h"

#define VORNA_LOG(priority, function, format, ...)                                          \
  log_print(LOG_ID_MAIN, priority, VORNA_LOG_TAG, "%s: %s(%d) > " format, VORNA_LOG_SOURCE, \
            function, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

#define LOGD(...) VORNA_LOG(LOG_PRIORITY_DEBUG, __func__, __VA_ARGS__)
#define LOGI(...) VORNA_LOG(LOG_PRIORITY_INFO, __func__, __VA_ARGS__)
#define LOGW(...) VORNA_LOG(LOG_PRIORITY_WARNING, __func__, __VA_ARGS__)
#define LOGE(...) VORNA_LOG(LOG_PRIORITY_ERROR, __func__, __VA_ARGS__)

// For an operation that is spread over several functions and is known to operators by one name.
#define LOGD_AS(function, ...) VORNA_LOG(LOG_PRIORITY_DEBUG, function, __VA_ARGS__)
#define LOGI_AS(function, ...) VORNA_LOG(LOG_PRIORITY_INFO, function, __VA_ARGS__)
#define LOGW_AS(function, ...) VORNA_LOG(LOG_PRIORITY_WARNING, function, __VA_ARGS__)
#define LOGE_AS(function, ...) VORNA_LOG(LOG_PRIORITY_ERROR, function, __VA_ARGS__)
