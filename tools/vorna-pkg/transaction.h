// SPDX-License-Identifier: MIT
// Changes of what is installed. Each is one rename at its heart: before it the old version is in
// place, after it the new one, whole at every instant; the recovery file around it makes sure that
// the rest is done too, by the next run if need be. One thread, which has the area open.
#ifndef TOOLS_VORNA_PKG_TRANSACTION_H
#define TOOLS_VORNA_PKG_TRANSACTION_H

#include <string>

#include "application_area.h"
#include "package_plan.h"

namespace vorna_pkg {

// Completes or takes back what runs that were killed have left.
void RecoverInterrupted(const ApplicationArea& area);

// Throws Error, and then nothing has changed.
void InstallPackage(const ApplicationArea& area, const PackagePlan& plan);
void UninstallPackage(const ApplicationArea& area, const std::string& package_id);

}  // namespace vorna_pkg

#endif
