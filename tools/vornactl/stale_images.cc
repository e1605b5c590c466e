// SPDX-License-Identifier: MIT
#include "stale_images.h"

#include <algorithm>
#include <map>
#include <vector>

#include "base/failure.h"
#include "base/files.h"
#include "image_choice.h"
#include "images/assembly_tree.h"
#include "images/compile_target.h"
#include "images/image_manifest.h"
#include "images/references.h"

namespace vornactl {
namespace {

using Manifests = std::map<std::string, std::optional<host::ImageManifest>>;

std::vector<host::Assembly> CandidatesOf(const PackageFacts& target) {
  std::map<std::string, host::Assembly> candidates;  // directories may lie in one another
  for (const std::string& path : CompiledDirectories(target)) {
    const host::UniqueFd directory = host::OpenTargetDirectory(path);
    if (!directory) continue;
    for (host::Assembly& assembly : host::ScanAssemblies(directory.get(), path)) {
      if (assembly.candidate) candidates.emplace(assembly.path(), std::move(assembly));
    }
  }
  std::vector<host::Assembly> list;
  list.reserve(candidates.size());
  for (auto& [path, assembly] : candidates) list.push_back(std::move(assembly));
  return list;
}

std::optional<host::ImageManifest> ReadManifest(const std::string& directory) {
  const host::UniqueFd images =
      host::OpenTargetDirectory(directory + "/" + host::kImageDirectoryName);
  std::string text;
  std::string cause;
  if (!images || host::ReadFileAt(images.get(), host::kManifestFileName, host::kLargestManifestFile,
                                  &text) != 0) {
    return std::nullopt;
  }
  return host::ImageManifest::Parse(text, &cause);
}

Manifests ReadManifests(const std::vector<host::Assembly>& candidates) {
  Manifests manifests;
  for (const host::Assembly& assembly : candidates) {
    if (manifests.count(assembly.directory) == 0) {
      manifests[assembly.directory] = ReadManifest(assembly.directory);
    }
  }
  return manifests;
}

// The core framework that the images were made for; 0 when there are none.
int MajorOfImages(const Manifests& manifests) {
  for (const auto& [directory, manifest] : manifests) {
    if (!manifest) continue;
    const auto core = manifest->frameworks.find(host::kCoreFramework);
    if (core != manifest->frameworks.end()) return host::MajorOf(core->second);
  }
  return 0;
}

// The compiler has said why there can be none, and nothing has changed since.
bool CanHaveNone(const host::Assembly& assembly, const Manifests& manifests) {
  const auto& manifest = manifests.at(assembly.directory);
  if (!manifest) return false;
  const auto record = manifest->assemblies.find(assembly.name);
  return record != manifest->assemblies.end() && !record->second.image &&
         record->second.input == assembly.identity;
}

}  // namespace

std::optional<std::string> WhyStale(const PackageFacts& target) {
  const std::vector<host::Assembly> candidates = CandidatesOf(target);
  const Manifests manifests = ReadManifests(candidates);
  const int made_for = MajorOfImages(manifests);
  // An application without a runtime configuration gets what its images were made for.
  const int major =
      made_for == 0
          ? 0
          : host::FrameworksFor(host::CompileTarget::ForPackage(target.id), made_for).CoreMajor();
  std::vector<std::string> paths;
  paths.reserve(candidates.size());
  for (const host::Assembly& assembly : candidates) paths.push_back(assembly.path());
  const auto choices = vorna_run::ChooseImages(paths, target.root, major);
  for (size_t i = 0; i < choices.size(); ++i) {
    if (!choices[i].image.empty() || CanHaveNone(candidates[i], manifests)) continue;
    return paths[i].substr(target.root.size() + 1) + ": " + choices[i].reason;
  }
  return std::nullopt;
}

std::vector<std::string> NamesOfCandidates(const PackageFacts& target) {
  std::vector<std::string> names;
  for (const host::Assembly& assembly : CandidatesOf(target)) names.push_back(assembly.name);
  return names;
}

}  // namespace vornactl
