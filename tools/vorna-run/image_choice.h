// SPDX-License-Identifier: MIT
// Which assemblies of an application are replaced by their native images at its start. An image
// carries its own copy of the assembly's code and the runtime does not fall back from a broken one,
// so that an image is taken only where its manifest shows that it is whole and belongs to the
// assembly as it is now. One thread.
#ifndef TOOLS_VORNA_RUN_IMAGE_CHOICE_H
#define TOOLS_VORNA_RUN_IMAGE_CHOICE_H

#include <string>
#include <vector>

namespace vorna_run {

struct Choice {
  std::string assembly;
  std::string image;   // full path; empty: the assembly itself is used
  std::string reason;  // why there is no image
};

// One choice for each trusted assembly that lies below the package's root, in their order.
// `framework_major` is that of the core framework which the application resolved to.
std::vector<Choice> ChooseImages(const std::vector<std::string>& trusted_assemblies,
                                 const std::string& package_root, int framework_major);

}  // namespace vorna_run

#endif
