// SPDX-License-Identifier: MIT
// The middle of an ImageBuild: from the assemblies to their checked images in the staging area.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <set>
#include <thread>

#include "base/failure.h"
#include "base/files.h"
#include "base/host_log.h"
#include "images/compiler_pool.h"
#include "images/image_build.h"
#include "images/pe_image.h"
#include "images/process_stat.h"

namespace host {
namespace {

constexpr char kOutputName[] = "image";
constexpr int kLowestPriority = 19;
constexpr uint64_t kMiB = 1 << 20;

// What the compiler needs for an assembly of so many bytes, with much to spare: an image is about
// three times the assembly, memory about 45 MiB and 70 bytes for each of its bytes.
uint64_t MemoryFor(uint64_t assembly) {
  return 3072 * kMiB + 200 * assembly;
}
uint64_t LargestImageFor(uint64_t assembly) {
  return 64 * kMiB + 16 * assembly;
}
uint64_t RoomFor(uint64_t assembly) {
  return kMiB + 4 * assembly;
}

std::vector<std::string> DirectoriesOf(const std::vector<std::string>& files) {
  std::set<std::string> directories;
  for (const std::string& file : files) directories.insert(file.substr(0, file.rfind('/')));
  return {directories.begin(), directories.end()};
}

std::string FirstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

// On the machine where an assembly was built its symbols still lie where it says, and the compiler
// gives up if it finds them there and cannot read them. Nothing but symbols is let through.
bool IsSymbolFile(const std::string& path) {
  struct stat status;
  if (path.empty() || path[0] != '/') return false;
  const UniqueFd file = OpenRegularFileAt(AT_FDCWD, path, &status);
  return file && FileSlice(file.get(), 0, static_cast<uint64_t>(status.st_size)).Get<uint32_t>(0) ==
                     kMetadataSignature;
}

}  // namespace

// Nothing but what a compile needs.
std::vector<std::string> ImageBuild::ReadablePaths() const {
  std::vector<std::string> paths = DirectoriesOf(frameworks_.assemblies);
  paths.push_back(compiler_->real_directory());
  paths.push_back(staging_->path());
  paths.insert(paths.end(), target_.directories.begin(), target_.directories.end());
  if (target_.package) paths.push_back(target_.package->root);
  for (const Assembly& assembly : assemblies_) {
    std::copy_if(assembly.symbol_files.begin(), assembly.symbol_files.end(),
                 std::back_inserter(paths), IsSymbolFile);
  }
  return paths;
}

std::vector<ImageBuild::Job*> ImageBuild::Unfailed() {
  std::vector<Job*> jobs;
  for (Job& job : jobs_) {
    if (job.failure.empty()) jobs.push_back(&job);
  }
  return jobs;
}

// Every assembly as a version bubble of its own. The compiler may fail, or hang, over an assembly
// that is sound but refers to a damaged one: what failed is tried again without the others that
// did, and uses of those are left to the runtime.
std::vector<ImageBuild::Trouble> ImageBuild::CompileAlone() {
  std::vector<Trouble> troubles = CompileRound(Unfailed(), {}, false);
  if (troubles.size() < 2) return troubles;
  std::vector<Job*> suspects;
  std::set<std::string> left_out;
  for (const Trouble& trouble : troubles) {
    suspects.push_back(trouble.job);
    left_out.insert(trouble.job->assembly->path());
  }
  return CompileRound(suspects, left_out, false);
}

// A failure in a bubble may be another member's fault: each is then tried by itself, and all are
// made again without the culprits.
void ImageBuild::CompileBubble() {
  LeaveDuplicatesOut();
  for (;;) {
    std::set<std::string> left_out;
    for (const Job& job : jobs_) {
      if (!job.failure.empty()) left_out.insert(job.assembly->path());
    }
    const std::vector<Trouble> in_bubble = CompileRound(Unfailed(), left_out, true);
    if (in_bubble.empty()) return;
    DiscardImages();
    const std::vector<Trouble> alone = CompileAlone();
    DiscardImages();
    for (const Trouble& trouble : alone.empty() ? in_bubble : alone) Fail(trouble);
  }
}

void ImageBuild::DiscardImages() {
  for (Job& job : jobs_) {
    if (job.image) job.set->Remove(ImageNameOf(job.assembly->name));
    job.image.reset();
  }
}

void ImageBuild::LeaveDuplicatesOut() {
  std::set<std::string> names;
  for (Job& job : jobs_) {
    if (job.failure.empty() && !names.insert(job.assembly->SimpleName()).second) {
      Fail({&job, "another assembly of its name is in the version bubble", {}});
    }
  }
}

// The failures are the caller's to judge. In a bubble the first one ends the round.
std::vector<ImageBuild::Trouble> ImageBuild::CompileRound(const std::vector<Job*>& jobs,
                                                          const std::set<std::string>& left_out,
                                                          bool in_bubble) {
  for (const auto& [directory, set] : sets_) WriteReferences(directory, left_out, in_bubble);
  std::vector<Trouble> troubles;
  CompilerTasks tasks;
  tasks.count = jobs.size();
  tasks.at_once = mode_.one_at_a_time ? 1 : std::max(1U, std::thread::hardware_concurrency());
  tasks.command = [&](size_t index) -> const CompilerProcess::Command& {
    return Prepare(jobs[index], in_bubble);
  };
  tasks.ended = [&](size_t index, const CompilerProcess::Result& result,
                    const std::string& output) {
    const std::string failure = Finish(jobs[index], result, output);
    if (failure.empty()) return true;
    troubles.push_back({jobs[index], failure, output});
    return !in_bubble;
  };
  RunCompilers(tasks);
  return troubles;
}

const CompilerProcess::Command& ImageBuild::Prepare(Job* job, bool in_bubble) {
  RemoveTree(staging_->directory(), job->output_directory);
  const std::string output = staging_->path() + "/" + job->output_directory;
  if (mkdirat(staging_->directory(), job->output_directory.c_str(), 0700) != 0) {
    throw SystemFailure(errno, output);
  }
  if (const auto user = FindCompilerUser()) {
    if (fchownat(staging_->directory(), job->output_directory.c_str(), user->uid, user->gid,
                 AT_SYMLINK_NOFOLLOW) != 0) {
      throw SystemFailure(errno, output);
    }
  }
  const uint64_t size = static_cast<uint64_t>(job->assembly->identity.size);
  job->confinement = std::make_unique<Confinement>(
      Confinement::Allowance{ReadablePaths(), output, MemoryFor(size), LargestImageFor(size)});
  const Compiler::Input input = {
      job->assembly->path(), staging_->path() + "/" + ReferenceListName(job->assembly->directory),
      output + "/" + kOutputName, in_bubble};
  job->command.executable = compiler_->executable();
  job->command.arguments = compiler_->Arguments(input, mode_);
  job->command.environment = Compiler::Environment(mode_, output);
  // The caller's nice value is inherited; only at its lowest does the compile give way to all.
  job->command.idle_classes =
      mode_.one_at_a_time && getpriority(PRIO_PROCESS, 0) == kLowestPriority;
  job->command.confinement = job->confinement.get();
  return job->command;
}

// Why there is no image; empty when there is.
std::string ImageBuild::Finish(Job* job, const CompilerProcess::Result& result,
                               const std::string& output) {
  std::string failure = FailureOf(*job, result, output);
  if (failure.empty()) failure = Adopt(job);
  RemoveTree(staging_->directory(), job->output_directory);
  job->confinement.reset();
  return failure;
}

// Why the process made no image, where the reason lies in the assembly; empty when it ended well.
std::string ImageBuild::FailureOf(const Job& job, const CompilerProcess::Result& result,
                                  const std::string& output) {
  const std::string path = job.assembly->path();
  if (const auto* failed = std::get_if<CompilerProcess::NotStarted>(&result)) {
    throw Failure(failed->error == ENOENT ? NI_ERROR_NO_COMPILER : NI_ERROR_SYSTEM,
                  Format("%s: cannot be started (%s): %s", compiler_->executable().c_str(),
                         failed->step, ErrorText(failed->error).c_str()));
  }
  if (const auto* abandoned = std::get_if<CompilerProcess::Abandoned>(&result)) {
    return std::string("the compiler was ended: ") + abandoned->reason;
  }
  std::string failure;
  if (const auto* signaled = std::get_if<CompilerProcess::Signaled>(&result)) {
    const int signal = signaled->signal;
    failure = Format("the compiler ended with signal %d", signal);
    const unsigned long long kills = MemoryKills();
    if (signal == SIGKILL && kills != memory_kills_) {
      memory_kills_ = kills;
      return "the machine has not enough memory to compile it";
    }
    if (signal == SIGKILL || signal == SIGTERM || signal == SIGINT) {
      throw Failure(NI_ERROR_COMPILER_KILLED,
                    Format("%s: its compiler was killed (signal %d)", path.c_str(), signal));
    }
  } else if (const int code = std::get<CompilerProcess::Exited>(result).code) {
    failure = Format("the compiler ended with status %d", code);
  }
  if (!failure.empty() &&
      !staging_->HasRoomFor(RoomFor(static_cast<uint64_t>(job.assembly->identity.size)))) {
    throw Failure(NI_ERROR_NO_SPACE, staging_->path() + ": no room for the image of " + path);
  }
  const std::string said = FirstLine(output);
  return failure.empty() || said.empty() ? failure : failure + ": " + said;
}

// Takes the compiler's file over, if it is an image of that assembly. Otherwise says what it is.
std::string ImageBuild::Adopt(Job* job) {
  const UniqueFd directory = OpenDirectoryAt(staging_->directory(), job->output_directory);
  const UniqueFd file = directory ? OpenRegularFileAt(directory.get(), kOutputName) : UniqueFd();
  if (!file) return "the compiler wrote no image";
  const std::string name = ImageNameOf(job->assembly->name);
  const ImageIdentity identity = job->set->Add(name, file.get());
  struct stat status;
  const UniqueFd copy = OpenRegularFileAt(job->set->directory(), name, &status);
  if (!copy) throw SystemFailure(errno, name);
  const PeImage image = ReadPeImage(copy.get(), status, true);
  if (image.kind != PeKind::kReadyToRun || image.machine != NativeImageMachine() ||
      !image.metadata_read || image.metadata.mvid != job->assembly->metadata.mvid) {
    job->set->Remove(name);
    return "what the compiler wrote is not its image";
  }
  job->image = identity;
  return {};
}

void ImageBuild::Fail(const Trouble& trouble) {
  trouble.job->failure = trouble.reason;
  HOST_LOG(WARNING, "No native image for %s: %s", trouble.job->assembly->path().c_str(),
           trouble.reason.c_str());
  const std::string& output = trouble.output;
  for (size_t begin = 0; begin < output.size();) {
    const size_t end = std::min(output.find('\n', begin), output.size());
    if (end > begin) HOST_LOG(INFO, "compiler: %s", output.substr(begin, end - begin).c_str());
    begin = end + 1;
  }
}

}  // namespace host
