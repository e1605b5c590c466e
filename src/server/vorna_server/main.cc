// SPDX-License-Identifier: MIT
#include "server/vorna_server/entry.h"

int main() {
  return run_vorna_server();
}
