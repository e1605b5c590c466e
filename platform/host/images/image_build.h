// SPDX-License-Identifier: MIT
// One compile, from the scan of the assemblies to the commit of their images. Used by one thread,
// the one that asked for the compile; compiles of one package may overlap, their commits do not.
#ifndef PLATFORM_HOST_IMAGES_IMAGE_BUILD_H
#define PLATFORM_HOST_IMAGES_IMAGE_BUILD_H

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "dotnet/frameworks.h"
#include "images/assembly_tree.h"
#include "images/compile_target.h"
#include "images/compiler.h"
#include "images/compiler_process.h"
#include "images/confinement.h"
#include "images/staging.h"

namespace host {

class ImageBuild {
 public:
  ImageBuild(CompileTarget target, const CompileMode& mode, bool bubble);
  // Throws Failure; then nothing has been committed, or only whole directories.
  void Run();

 private:
  struct Job {
    const Assembly* assembly;
    StagedSet* set;
    std::string output_directory;  // name in the staging area
    std::unique_ptr<Confinement> confinement;
    CompilerProcess::Command command;
    std::optional<ImageIdentity> image;
    std::string failure;  // why there is no image
  };
  struct Trouble {
    Job* job;
    std::string reason;
    std::string output;  // the compiler's
  };

  void Scan();
  void ScanDirectory(const std::string& path, bool wanted);
  void CheckCompiler() const;
  std::vector<std::string> ReadablePaths() const;
  void Stage();
  void WriteReferences(const std::string& directory, const std::set<std::string>& left_out,
                       bool in_bubble);
  void CompileBubble();
  void LeaveDuplicatesOut();
  void DiscardImages();
  std::vector<Trouble> CompileAlone();
  std::vector<Trouble> CompileRound(const std::vector<Job*>& jobs,
                                    const std::set<std::string>& left_out, bool in_bubble);
  std::vector<Job*> Unfailed();
  const CompilerProcess::Command& Prepare(Job* job, bool in_bubble);
  std::string Finish(Job* job, const CompilerProcess::Result& result, const std::string& output);
  std::string FailureOf(const Job& job, const CompilerProcess::Result& result,
                        const std::string& output);
  std::string Adopt(Job* job);
  void Fail(const Trouble& trouble);
  void Commit();
  void CheckInputs() const;
  ImageManifest ManifestOf(const std::string& directory) const;
  std::string ReferenceListName(const std::string& directory) const;

  const CompileTarget target_;
  const CompileMode mode_;
  const bool bubble_;
  std::vector<Assembly> assemblies_;  // of the package, fixed once jobs_ points into it
  std::optional<Compiler> compiler_;
  FrameworkSet frameworks_;
  std::unique_ptr<StagingArea> staging_;
  std::map<std::string, std::unique_ptr<StagedSet>> sets_;  // by directory
  std::vector<Job> jobs_;                                   // largest assembly first
  unsigned long long memory_kills_ = 0;
};

}  // namespace host

#endif
