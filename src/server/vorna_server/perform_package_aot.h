// SPDX-License-Identifier: MIT
// The bus method that compiles one package while its caller waits.
// Runs on a thread of its own for each call; the calls are performed one after another.
#pragma once

#include <gio/gio.h>

// Performs the call and answers it.
void perform_package_aot(GDBusMethodInvocation* invocation, unsigned int sender_uid);
