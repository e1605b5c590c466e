// SPDX-License-Identifier: MIT
// Who calls. Asks the bus and waits for its answer; main loop only.
#pragma once

#include <gio/gio.h>

// The Unix user id of a connection, or -1 as unsigned when the bus does not tell (logged). Calls
// are performed in any case.
unsigned int get_sender_uid(GDBusConnection* connection, const char* sender);
