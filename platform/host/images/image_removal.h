// SPDX-License-Identifier: MIT
// Takes the native images of a package away. Any thread; not beside a commit of the same package.
#ifndef PLATFORM_HOST_IMAGES_IMAGE_REMOVAL_H
#define PLATFORM_HOST_IMAGES_IMAGE_REMOVAL_H

#include "images/compile_target.h"

namespace host {

// Every native image under the package's root, and what interrupted compiles left there. Throws
// Failure after it has removed what it could.
void RemoveImages(const CompileTarget& target);

}  // namespace host

#endif
