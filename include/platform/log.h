// SPDX-License-Identifier: MIT
/* The platform log. */
#ifndef PLATFORM_LOG_H
#define PLATFORM_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

enum { LOG_ID_MAIN = 0 };

enum {
  LOG_PRIORITY_DEBUG = 3,
  LOG_PRIORITY_INFO = 4,
  LOG_PRIORITY_WARNING = 5,
  LOG_PRIORITY_ERROR = 6
};

/* Writes one line, formatted as by printf. It never blocks the caller for long and never fails
 * visibly; the return value is 0 or a failure that nobody has to look at. Any thread may call it.
 */
int log_print(int log_id, int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
