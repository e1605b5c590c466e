// SPDX-License-Identifier: MIT
// What the daemon does when a package that it compiles is updated or uninstalled.
// Entered by: the main loop; on_recovery_file_created also by the worker. No lock is held.
#pragma once

#include "server/recovery_file_watcher/recovery_file.h"

// Takes the package out of the queue.
void on_recovery_file_created(server::recovery_file_watcher::RecoveryFile file);

// Puts it back after an update.
void on_recovery_file_deleted(server::recovery_file_watcher::RecoveryFile file);
