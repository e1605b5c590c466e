// SPDX-License-Identifier: MIT
#include "images/image_build.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <set>

#include "base/failure.h"
#include "base/files.h"
#include "base/host_log.h"
#include "images/pe_image.h"
#include "images/process_stat.h"
#include "images/references.h"

namespace host {
namespace {

std::string Sha256(const std::string& text) {
  const std::unique_ptr<char, decltype(&g_free)> digest(
      g_compute_checksum_for_string(G_CHECKSUM_SHA256, text.data(),
                                    static_cast<gssize>(text.size())),
      &g_free);
  return digest.get();
}

}  // namespace

ImageBuild::ImageBuild(CompileTarget target, const CompileMode& mode, bool bubble)
    : target_(std::move(target)), mode_(mode), bubble_(bubble) {}

void ImageBuild::Run() {
  Scan();
  if (jobs_.empty()) {
    HOST_LOG(DEBUG, "%s: no assembly wants a native image", target_.name().c_str());
    return;
  }
  compiler_ = Compiler::Find();
  frameworks_ = FrameworksFor(target_, compiler_->major());
  CheckCompiler();
  Stage();
  memory_kills_ = MemoryKills();
  if (bubble_) {
    CompileBubble();
  } else {
    for (const Trouble& trouble : CompileAlone()) Fail(trouble);
  }
  const auto made = std::count_if(jobs_.begin(), jobs_.end(),
                                  [](const Job& job) { return job.image.has_value(); });
  if (made == 0) {
    CheckInputs();
    throw Failure(NI_ERROR_ALL_FAILED, target_.name() + ": not one assembly could be compiled");
  }
  Commit();
  HOST_LOG(INFO, "%s: %d native images for %d assemblies", target_.name().c_str(),
           static_cast<int>(made), static_cast<int>(jobs_.size()));
}

void ImageBuild::Scan() {
  for (const std::string& directory : target_.directories) ScanDirectory(directory, true);
  if (target_.package) ScanDirectory(target_.package->root + "/bin", false);
  for (const Assembly& assembly : assemblies_) {
    if (assembly.candidate) jobs_.push_back({&assembly, nullptr, {}, nullptr, {}, {}, {}});
  }
  std::stable_sort(jobs_.begin(), jobs_.end(), [](const Job& a, const Job& b) {
    return a.assembly->identity.size > b.assembly->identity.size;
  });
}

// Directories may lie in one another; each assembly counts once. What is not wanted is referred to.
void ImageBuild::ScanDirectory(const std::string& path, bool wanted) {
  const UniqueFd directory = OpenTargetDirectory(path);
  if (!directory) {
    HOST_LOG(DEBUG, "%s: %s", path.c_str(), ErrorText(errno).c_str());
    return;
  }
  for (Assembly& assembly : ScanAssemblies(directory.get(), path)) {
    const bool known =
        std::any_of(assemblies_.begin(), assemblies_.end(),
                    [&](const Assembly& other) { return other.path() == assembly.path(); });
    if (known) continue;
    assembly.candidate = assembly.candidate && wanted;
    assemblies_.push_back(std::move(assembly));
  }
}

void ImageBuild::CheckCompiler() const {
  const auto core = frameworks_.versions.find(kCoreFramework);
  if (core == frameworks_.versions.end()) {
    throw Failure(NI_ERROR_NO_FRAMEWORK,
                  target_.name() + ": its frameworks do not include " + kCoreFramework);
  }
  if (frameworks_.CoreMajor() != compiler_->major()) {
    throw Failure(NI_ERROR_NO_COMPILER, target_.name() + ": the compiler " + compiler_->version() +
                                            " does not serve " + kCoreFramework + " " +
                                            core->second);
  }
}

void ImageBuild::Stage() {
  const UniqueFd first = OpenTargetDirectory(jobs_.front().assembly->directory);
  if (!first) throw SystemFailure(errno, jobs_.front().assembly->directory);
  staging_ = std::make_unique<StagingArea>(target_.places, first.get());
  for (size_t i = 0; i < jobs_.size(); ++i) {
    Job& job = jobs_[i];
    job.output_directory = "out." + std::to_string(i);
    auto& set = sets_[job.assembly->directory];
    if (!set) {
      const UniqueFd directory = OpenTargetDirectory(job.assembly->directory);
      if (!directory) throw SystemFailure(errno, job.assembly->directory);
      set = std::make_unique<StagedSet>(staging_->directory(),
                                        "set." + std::to_string(sets_.size()), directory.get());
    }
    job.set = set.get();
    if (!job.assembly->fault.empty()) Fail({&job, job.assembly->fault, {}});
  }
}

std::string ImageBuild::ReferenceListName(const std::string& directory) const {
  return "references." + std::to_string(std::distance(sets_.begin(), sets_.find(directory)));
}

void ImageBuild::WriteReferences(const std::string& directory,
                                 const std::set<std::string>& left_out, bool in_bubble) {
  std::string list;
  for (const Job* job : Unfailed()) {
    if (in_bubble) list += "--inputbubbleref:" + job->assembly->path() + "\n";
  }
  for (const std::string& path : ReferencesFor(directory, assemblies_, frameworks_)) {
    if (left_out.count(path) == 0) list += "-r:" + path + "\n";
  }
  const std::string name = ReferenceListName(directory);
  const UniqueFd file(openat(staging_->directory(), name.c_str(),
                             O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
  const int error = !file || fchmod(file.get(), 0644) != 0 ? errno : WriteAll(file.get(), list);
  if (error != 0) throw SystemFailure(error, staging_->path() + "/" + name);
}

void ImageBuild::Commit() {
  for (const auto& [directory, set] : sets_) set->WriteManifest(ManifestOf(directory));
  const PackageLock lock(target_.name());
  CheckInputs();
  for (const auto& [path, set] : sets_) {
    const UniqueFd directory = OpenTargetDirectory(path);
    if (!directory) throw Failure(NI_ERROR_INPUT_CHANGED, path + ": " + ErrorText(errno));
    set->Commit(staging_->directory(), directory.get(), path);
  }
}

// An image carries its assembly's code: made from yesterday's, it would run yesterday's.
void ImageBuild::CheckInputs() const {
  for (const Job& job : jobs_) {
    struct stat status;
    const UniqueFd directory = OpenTargetDirectory(job.assembly->directory);
    const UniqueFd file =
        directory ? OpenRegularFileAt(directory.get(), job.assembly->name, &status) : UniqueFd();
    if (!file || IdentityOf(status, ReadPeImage(file.get(), status, true).metadata) !=
                     job.assembly->identity) {
      throw Failure(NI_ERROR_INPUT_CHANGED,
                    job.assembly->path() + ": replaced or removed while it was compiled");
    }
  }
}

ImageManifest ImageBuild::ManifestOf(const std::string& directory) const {
  ImageManifest manifest;
  manifest.compiler = compiler_->version();
  manifest.architecture = TargetArchitecture();
  manifest.frameworks = frameworks_.versions;
  manifest.options = {"-O"};
  if (bubble_) {
    manifest.options.push_back("--inputbubble");
    manifest.bubble = Bubble();
  }
  std::string digests;
  for (const Job& job : jobs_) {
    if (bubble_ && job.image) {
      manifest.bubble->members.push_back(job.assembly->path());
      digests += job.image->sha256;
    }
    if (job.assembly->directory != directory) continue;
    manifest.assemblies[job.assembly->name] = {job.assembly->identity, job.image, job.failure};
  }
  if (bubble_) manifest.bubble->id = Sha256(digests);
  return manifest;
}

}  // namespace host
