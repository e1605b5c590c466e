// SPDX-License-Identifier: MIT
// The shared frameworks that an application resolves to on this machine, as the runtime itself
// resolves them. Any thread.
#ifndef PLATFORM_HOST_DOTNET_FRAMEWORKS_H
#define PLATFORM_HOST_DOTNET_FRAMEWORKS_H

#include <map>
#include <string>
#include <vector>

namespace host {

inline constexpr char kCoreFramework[] = "Microsoft.NETCore.App";
inline constexpr size_t kLargestRuntimeConfig = 1 << 20;

struct FrameworkSet {
  std::map<std::string, std::string> versions;  // by the framework's name
  std::vector<std::string> assemblies;          // full paths

  // Of the core framework; 0 when it is not among them.
  int CoreMajor() const;
};

int MajorOf(const std::string& version);

// The content of a *.runtimeconfig.json as strangers wrote it. Throws Failure
// (NI_ERROR_NO_FRAMEWORK) with the cause.
FrameworkSet ResolveFrameworks(const std::string& runtime_config);

// For assemblies without an application: the core framework of one major version.
std::string RuntimeConfigForMajor(int major);

// The frameworks of a list of trusted platform assemblies: those entries that lie in
// <root>/shared/<name>/<version>/.
FrameworkSet FrameworksOf(const std::vector<std::string>& trusted_assemblies);

}  // namespace host

#endif
