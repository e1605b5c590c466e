// SPDX-License-Identifier: MIT
// `vorna-pkg verify`: is an installed package what was installed, and are its images of use. Reads
// every byte; changes nothing. One thread.
#ifndef TOOLS_VORNA_PKG_VERIFICATION_H
#define TOOLS_VORNA_PKG_VERIFICATION_H

#include <string>

namespace vorna_pkg {

enum class Verdict {
  kGood,
  kDamaged,       // the manifest or a file is not what was installed
  kImagesWanted,  // the package is whole, but not every image is fresh
};

// Prints its findings. Throws Error for a package that is not installed.
Verdict VerifyPackage(const std::string& id);

}  // namespace vorna_pkg

#endif
