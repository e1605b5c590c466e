// SPDX-License-Identifier: MIT
// The native images of an installed package, judged as a launcher judges them: does each belong to
// its assembly as that is now, and is it whole. Stateless; any thread. The package's files may be
// anybody's.
#ifndef TOOLS_VORNA_PKG_IMAGE_CHECK_H
#define TOOLS_VORNA_PKG_IMAGE_CHECK_H

#include <string>
#include <vector>

#include "base/package_registry.h"

namespace vorna_pkg {

enum class ImageState {
  kFresh,
  kStale,    // made from another assembly or for another framework
  kDamaged,  // not what was made
  kMissing,
  kNone,  // the compiler has said why there can be none
};

struct ImageFinding {
  std::string assembly;  // below the package's root
  ImageState state;
  std::string reason;  // empty when fresh
};

const char* NameOf(ImageState state);

// kThorough reads every image and asks the runtime which framework the application gets.
enum class Depth { kQuick, kThorough };

// One finding for each assembly that wants an image. Throws Error for what cannot be read.
std::vector<ImageFinding> CheckImages(const host::Package& package, Depth depth);

}  // namespace vorna_pkg

#endif
