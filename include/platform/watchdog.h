// SPDX-License-Identifier: MIT
/* The deadlock watchdog. Each call concerns the calling thread; 0 on success. */
#ifndef PLATFORM_WATCHDOG_H
#define PLATFORM_WATCHDOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* From now on the calling thread notifies at least every timeout_seconds, or the watchdog ends the
 * process (SIGABRT) after a log line that names the thread. */
int tarrow_register_watchdog_service(int timeout_seconds);
int tarrow_watchdog_notify(void);
int tarrow_unregister_watchdog_service(void);

#ifdef __cplusplus
}
#endif

#endif
