// SPDX-License-Identifier: MIT
// Taking and giving up the daemon's bus name. Giving it up loses no call: what the bus delivered
// before is still taken from the connection and answered.
// Entered by: the main loop.
#pragma once

#include <chrono>

// Asks for the name. False on failure (logged).
bool own_bus_name();

// Gives the name up. If calls had come in meanwhile, takes it again and returns false: they are
// performed once the daemon owns it, for until then another may work on the queue file.
bool release_bus_name_unless_called();

// Gives the name up, if it is held, and dispatches the calls that had come in meanwhile; no longer
// than until the deadline, for clients that know the connection's own name may go on calling.
void release_bus_name_and_dispatch_calls(std::chrono::steady_clock::time_point deadline);
