// SPDX-License-Identifier: MIT
// SIGINT, SIGTERM and SIGHUP: a change that is still being prepared is taken back, one that is
// committed is brought to its end. The handler only sets a flag. One thread.
#ifndef TOOLS_VORNA_PKG_INTERRUPTION_H
#define TOOLS_VORNA_PKG_INTERRUPTION_H

namespace vorna_pkg {

void WatchForInterruption();

// Throws Error once a signal has come. Called where turning back is still possible.
void ThrowIfInterrupted();

}  // namespace vorna_pkg

#endif
