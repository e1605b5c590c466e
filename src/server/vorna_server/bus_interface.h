// SPDX-License-Identifier: MIT
// The daemon's object on the bus: takes each method call on the main loop, finds its caller's uid,
// and hands it to a handler on the method-call pool, or to a thread of its own.
// Entered by: the main loop; decrement_num_of_pending_method_calls by any thread.
#pragma once

#include <gio/gio.h>

// Parses the description of the interface into introspection_data. False on failure (logged).
bool parse_interface_description();

// Callbacks of the bus name.
void on_bus_acquired(GDBusConnection* connection, const gchar* name, gpointer user_data);
void on_name_acquired(GDBusConnection* connection, const gchar* name, gpointer user_data);
void on_name_lost(GDBusConnection* connection, const gchar* name, gpointer user_data);

// A call that was accepted has been answered.
void decrement_num_of_pending_method_calls();
