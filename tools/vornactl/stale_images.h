// SPDX-License-Identifier: MIT
// Packages whose native images are missing or would not be used any more, as after an upgrade of
// .NET or of the package. Judged as the launcher judges an image at a start. One thread.
#ifndef TOOLS_VORNACTL_STALE_IMAGES_H
#define TOOLS_VORNACTL_STALE_IMAGES_H

#include <optional>
#include <string>
#include <vector>

#include "package_facts.h"

namespace vornactl {

// Why a target is to be compiled again: the first assembly without a fitting image. Nothing: every
// assembly that wants an image has one that fits, or cannot have one. Throws host::Failure when
// that cannot be told.
std::optional<std::string> WhyStale(const PackageFacts& target);

// The names of the assemblies that want an image.
std::vector<std::string> NamesOfCandidates(const PackageFacts& target);

}  // namespace vornactl

#endif
