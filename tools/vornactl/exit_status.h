// SPDX-License-Identifier: MIT
// How vornactl ends. Scripts compare the numbers: they never change. An interrupted command ends
// with 128 and the signal's number.
#ifndef TOOLS_VORNACTL_EXIT_STATUS_H
#define TOOLS_VORNACTL_EXIT_STATUS_H

namespace vornactl {

enum ExitStatus {
  kDone = 0,
  kRefused = 1,       // the daemon answered with a result other than 0
  kWrongUsage = 2,    // nothing was asked of the daemon
  kUnreachable = 3,   // no bus, no daemon, or no answer
  kNotPermitted = 4,  // by the bus, for this user
  kNotDone = 5,       // nothing was refused, and still what was asked for has not happened
  kSignalBase = 128,
};

inline constexpr char kExitStatusHelp[] =
    "Exit status:\n"
    "  0    done\n"
    "  1    refused by the daemon; its result is shown in words and as a number\n"
    "  2    wrong usage\n"
    "  3    the bus or the daemon cannot be reached, or does not answer; status: it does not run\n"
    "  4    this user is not permitted to ask for it\n"
    "  5    not done: a package was passed over or dropped, or the question was answered with no\n"
    "  130  interrupted (143: terminated)";

}  // namespace vornactl

#endif
