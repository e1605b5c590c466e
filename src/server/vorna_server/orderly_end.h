// SPDX-License-Identifier: MIT
// The end of the work, between the main loop and the release of what it used: no compile goes on,
// no accepted call stays without an answer, no thread is left that would meet destroyed globals.
// Entered by: the main thread.
#pragma once

// Stops the compiles, gives the bus name up, waits for the calls, and closes the connection. False
// when something would not end in time: the process must then end without destroying anything.
bool end_work();
