// SPDX-License-Identifier: MIT
// Tells the bus that the daemon has finished with a package. Never retried: the signal says that
// work has ended, not how.
// Entered by: the worker and PerformPackageAOT threads.
#pragma once

#include <string>

void emit_aot_compile_finished(std::string package_id);
