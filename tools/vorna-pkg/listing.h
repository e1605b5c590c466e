// SPDX-License-Identifier: MIT
// `vorna-pkg list` and `vorna-pkg show`: for people, or as JSON for programs. One thread.
#ifndef TOOLS_VORNA_PKG_LISTING_H
#define TOOLS_VORNA_PKG_LISTING_H

#include <string>

namespace vorna_pkg {

void ListPackages(bool as_json);
// Throws Error for a package that is not installed or cannot be read.
void ShowPackage(const std::string& id, bool as_json);

}  // namespace vorna_pkg

#endif
