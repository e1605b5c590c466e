// SPDX-License-Identifier: MIT
// What an assembly is compiled against: the frameworks that its application resolves to, and the
// assemblies of its package. Any thread.
#ifndef PLATFORM_HOST_IMAGES_REFERENCES_H
#define PLATFORM_HOST_IMAGES_REFERENCES_H

#include <string>
#include <vector>

#include "dotnet/frameworks.h"
#include "images/assembly_tree.h"
#include "images/compile_target.h"

namespace host {

// The frameworks of the target's application; those of the compiler where it has no runtime
// configuration. Throws Failure.
FrameworkSet FrameworksFor(const CompileTarget& target, int compiler_major);

// The paths that an assembly in the given directory is compiled against: one for each simple name
// (the compiler fails on two), its neighbours before the package's other directories; of a name
// that the framework has too, the higher version, as the runtime does.
std::vector<std::string> ReferencesFor(const std::string& directory,
                                       const std::vector<Assembly>& package,
                                       const FrameworkSet& frameworks);

}  // namespace host

#endif
