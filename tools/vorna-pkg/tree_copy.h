// SPDX-License-Identifier: MIT
// Copies a source tree into a staged package. One thread.
#ifndef TOOLS_VORNA_PKG_TREE_COPY_H
#define TOOLS_VORNA_PKG_TREE_COPY_H

#include "package_plan.h"

namespace vorna_pkg {

// Fills an empty directory with the package: its files, its manifest, and the record of them.
// Durable when it returns. Throws Error, also when the source is not what was scanned any more.
void CopyPackage(const PackagePlan& plan, int root);

}  // namespace vorna_pkg

#endif
