// SPDX-License-Identifier: MIT
#include "interruption.h"

#include <signal.h>

#include "error.h"

namespace vorna_pkg {
namespace {

volatile sig_atomic_t interrupted = 0;

}  // namespace

void WatchForInterruption() {
  struct sigaction action = {};
  action.sa_handler = [](int) { interrupted = 1; };
  // No SA_RESTART: who waits for another run's lock is to notice.
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGHUP, &action, nullptr);
  // A reader that goes away must not end a change in the middle.
  signal(SIGPIPE, SIG_IGN);
}

void ThrowIfInterrupted() {
  if (interrupted != 0) throw Error("interrupted; nothing is changed");
}

}  // namespace vorna_pkg
