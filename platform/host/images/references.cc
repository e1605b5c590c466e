// SPDX-License-Identifier: MIT
#include "images/references.h"

#include <dirent.h>
#include <fcntl.h>
#include <glib.h>

#include <algorithm>
#include <map>
#include <memory>

#include "base/failure.h"
#include "base/files.h"
#include "base/host_log.h"
#include "images/pe_image.h"

namespace host {
namespace {

constexpr char kConfigSuffix[] = ".runtimeconfig.json";

std::string DirectoryOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

// The main application's own configuration, else the first in <root>/bin. Empty: there is none.
std::string FindRuntimeConfig(const Package& package) {
  const Application* main = package.FindApplication(package.main_application);
  if (main != nullptr && EndsWith(main->executable, ".dll")) {
    const std::string& executable = main->executable;
    return package.root + "/" + executable.substr(0, executable.size() - 4) + kConfigSuffix;
  }
  const std::string bin = package.root + "/bin";
  std::string first;
  UniqueFd directory = OpenTargetDirectory(bin);
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(directory ? fdopendir(directory.get()) : nullptr,
                                                   &closedir);
  if (stream) directory.Release();
  while (const dirent* entry = stream ? readdir(stream.get()) : nullptr) {
    const std::string name = entry->d_name;
    if (EndsWith(name, kConfigSuffix) && (first.empty() || name < first)) first = name;
  }
  return first.empty() ? first : bin + "/" + first;
}

// 0 or errno.
int ReadConfig(const std::string& path, std::string* content) {
  const UniqueFd directory = OpenTargetDirectory(DirectoryOf(path));
  if (!directory) return errno;
  return ReadFileAt(directory.get(), path.substr(path.rfind('/') + 1), kLargestRuntimeConfig,
                    content);
}

std::string SimpleNameOf(const std::string& path) {
  Assembly assembly;
  assembly.name = path.substr(path.rfind('/') + 1);
  return assembly.SimpleName();
}

AssemblyVersion VersionOf(const std::string& path) {
  struct stat status;
  const UniqueFd file = OpenRegularFileAt(AT_FDCWD, path, &status);
  return file ? ReadPeImage(file.get(), status, true).metadata.version : AssemblyVersion{};
}

}  // namespace

FrameworkSet FrameworksFor(const CompileTarget& target, int compiler_major) {
  const std::string path = target.package ? FindRuntimeConfig(*target.package) : std::string();
  std::string config;
  const int error = path.empty() ? ENOENT : ReadConfig(path, &config);
  if (error == ENOENT) {
    HOST_LOG(INFO, "%s has no runtime configuration: compiled for %s %d", target.name().c_str(),
             kCoreFramework, compiler_major);
    config = RuntimeConfigForMajor(compiler_major);
  } else if (error != 0) {
    throw Failure(NI_ERROR_NO_FRAMEWORK, path + ": " + ErrorText(error));
  }
  try {
    return ResolveFrameworks(config);
  } catch (const Failure& failure) {
    throw Failure(failure.code(), (path.empty() ? target.name() : path) + ": " + failure.what());
  }
}

std::vector<std::string> ReferencesFor(const std::string& directory,
                                       const std::vector<Assembly>& package,
                                       const FrameworkSet& frameworks) {
  std::map<std::string, std::string> paths;
  for (const std::string& path : frameworks.assemblies) paths.emplace(SimpleNameOf(path), path);
  std::map<std::string, const Assembly*> own;
  for (const bool neighbours : {true, false}) {
    for (const Assembly& assembly : package) {
      const std::string path = assembly.path();
      // A line of the reference list cannot hold such a name.
      const bool listed =
          std::none_of(path.begin(), path.end(), [](char byte) { return g_ascii_iscntrl(byte); }) &&
          path.find_first_of("*?") == std::string::npos;
      if ((assembly.directory == directory) == neighbours && listed && assembly.CanBeReferredTo()) {
        own.emplace(assembly.SimpleName(), &assembly);
      }
    }
  }
  for (const auto& [name, assembly] : own) {
    const auto framework = paths.find(name);
    if (framework == paths.end() || assembly->metadata.version > VersionOf(framework->second)) {
      paths[name] = assembly->path();
    }
  }
  std::vector<std::string> references;
  references.reserve(paths.size());
  for (auto& [name, path] : paths) references.push_back(std::move(path));
  return references;
}

}  // namespace host
