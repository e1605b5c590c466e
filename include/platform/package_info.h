// SPDX-License-Identifier: MIT
/* What is known about installed packages and the applications in them.
 *
 * Every function returns 0 on success and another value on failure, and may be called from any
 * thread. A string that is handed out belongs to the handle that it came from. */
#ifndef PLATFORM_PACKAGE_INFO_H
#define PLATFORM_PACKAGE_INFO_H

#ifdef __cplusplus
extern "C" {
#endif

struct package_info;
struct app_info;

/* Called for each metadata pair of an application; 0 goes on to the next pair, anything else ends
 * the iteration. */
typedef int (*app_info_metadata_callback)(const char* key, const char* value, void* user_data);

/* Looks an installed package up. The handle is released with package_info_destroy. */
int package_info_get(const char* package_id, struct package_info** package);
int package_info_get_main_app_id(struct package_info* package, const char** app_id);
int package_info_get_root_path(struct package_info* package, const char** path);
int package_info_destroy(struct package_info* package);

/* Looks an application of an installed package up. The handle is released with app_info_destroy. */
int app_info_get(const char* app_id, struct app_info** app);
int app_info_get_app_type(struct app_info* app, const char** app_type);
int app_info_foreach_metadata(struct app_info* app, app_info_metadata_callback callback,
                              void* user_data);
int app_info_destroy(struct app_info* app);

#ifdef __cplusplus
}
#endif

#endif
