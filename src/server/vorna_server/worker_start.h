// SPDX-License-Identifier: MIT
// Decides whether the queue worker may run now, and starts it.
// Entered by: the main loop.
#pragma once

#include <mutex>

#include "server/thread_manager/thread_statuses.h"

// For ThreadManager::run_with_thread_status. Returns the status that results; ends the main loop
// when the worker stopped for storage.
vorna_thread_statuses try_set_thread_status_running(vorna_thread_statuses status,
                                                    std::unique_lock<std::mutex> lock);
