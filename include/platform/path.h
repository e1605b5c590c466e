// SPDX-License-Identifier: MIT
/* The platform's directories. */
#ifndef PLATFORM_PATH_H
#define PLATFORM_PATH_H

#ifdef __cplusplus
extern "C" {
#endif

/* The directory under which packages are installed that can be updated and removed. */
enum { PLATFORM_PATH_RW_APPS = 27 };

/* The directory that a platform path variable stands for, or NULL for an unknown variable. The
 * string is static. */
const char* platform_path_getenv(int variable);

#ifdef __cplusplus
}
#endif

#endif
