// SPDX-License-Identifier: MIT
// What the platform library and the daemon's modules would log. This program's standard error
// belongs to its user: their lines are kept here instead, where an answer can name the cause.
// One thread.
#ifndef TOOLS_VORNACTL_PLATFORM_COMPLAINTS_H
#define TOOLS_VORNACTL_PLATFORM_COMPLAINTS_H

#include <string>

namespace vornactl {

// The platform library's last warning or error since the last call; empty without one.
std::string TakePlatformComplaint();

}  // namespace vornactl

#endif
