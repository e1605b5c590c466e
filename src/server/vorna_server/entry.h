// SPDX-License-Identifier: MIT
// The daemon from start to end. Runs on the main thread.
#pragma once

// The exit status: 0 after a normal end, -1 when the start failed (logged).
int run_vorna_server();
