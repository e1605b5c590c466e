// SPDX-License-Identifier: MIT
// The way of a method call from the bus to the thread that performs it. While the daemon is between
// giving its name up and taking it again, calls that have still come are kept back: another daemon
// may own the name, and the queue file with it, by then.
// Entered by: the main loop.
#pragma once

#include <gio/gio.h>

// Method-call function of the bus object.
void handle_method_call(GDBusConnection* connection, const gchar* sender, const gchar* object_path,
                        const gchar* interface_name, const gchar* method_name, GVariant* parameters,
                        GDBusMethodInvocation* invocation, gpointer user_data);

// From now on calls are kept back.
void defer_method_calls();
bool has_deferred_calls();
// Performs the calls that were kept back, and those to come.
void dispatch_deferred_calls();
// Hands the calls that were kept back to the daemon that owns the name now, and the answers to
// their callers; ends the main loop after the last. False when there are none.
bool forward_deferred_calls();
