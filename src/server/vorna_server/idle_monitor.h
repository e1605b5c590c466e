// SPDX-License-Identifier: MIT
// The check of every 5 seconds: starts the worker when there is work, ends the daemon when three
// checks in a row found none.
// Entered by: the main loop.
#pragma once

#include <glib.h>

inline constexpr unsigned int kIdleCheckSeconds = 5;

// Timeout callback; false ends the checks.
gboolean check_thread(gpointer user_data);
