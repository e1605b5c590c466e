// SPDX-License-Identifier: MIT
// Empties the AOT queue for a client.
// Entered by: method-call threads; locks only inside the operations that it calls.
#pragma once

#include "common/vorna_error.h"

// Takes every package out while the worker is paused. VORNA_ERROR_DAEMON_PROCESS when it cannot be
// paused or resumed.
vorna_error clean_aot_queue();
