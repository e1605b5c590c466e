// SPDX-License-Identifier: MIT
// A platform library for tests: packages are directories as on a real machine, and a compile
// writes placeholder images. Any call can be watched, delayed and given another result through one
// hook, in this process or, where VORNA_DOUBLE_SOCKET names a Unix socket, in the test at its end.
#ifndef TESTS_SUPPORT_PLATFORM_DOUBLE_H
#define TESTS_SUPPORT_PLATFORM_DOUBLE_H

#include <functional>
#include <string>
#include <vector>

namespace platform_double {

// One platform call with its arguments as text. A log line is a call of "log_print" with the
// priority, the tag and the text.
struct Call {
  std::string function;
  std::vector<std::string> arguments;
};

// What a hook makes of a call: a result other than 0 replaces the call, 0 goes on with what the
// double does by itself. `text` is the label that smack_getlabel finds.
struct Answer {
  int result = 0;
  std::string text;
};

// Runs on the calling thread, several at once, and may block it. An empty hook takes it away; a
// call that has begun ends with the hook that it began with.
using Hook = std::function<Answer(const Call&)>;
void SetHook(Hook hook);

Answer Ask(Call call);
Hook SocketHook(const std::string& socket_path);
std::string PackageRoot(const std::string& package_id);  // empty: not installed

}  // namespace platform_double

#endif
