// SPDX-License-Identifier: MIT
#include "images/image_build.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <thread>

#include "base/failure.h"
#include "base/files.h"
#include "base/host_log.h"
#include "images/compiler_pool.h"
#include "images/pe_image.h"
#include "images/process_stat.h"
#include "images/references.h"

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
    CompileRound();
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
    if (!job.assembly->fault.empty()) Fail(&job, job.assembly->fault);
  }
}

std::string ImageBuild::ReferenceListName(const std::string& directory) const {
  return "references." + std::to_string(std::distance(sets_.begin(), sets_.find(directory)));
}

void ImageBuild::WriteReferences(const std::string& directory) {
  std::string list;
  for (const std::string& path : ReferencesFor(directory, assemblies_, frameworks_)) {
    list += "-r:" + path + "\n";
  }
  for (const Job& job : jobs_) {
    if (bubble_ && job.failure.empty()) list += "--inputbubbleref:" + job.assembly->path() + "\n";
  }
  const std::string name = ReferenceListName(directory);
  const UniqueFd file(openat(staging_->directory(), name.c_str(),
                             O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
  const int error = !file || fchmod(file.get(), 0644) != 0 ? errno : WriteAll(file.get(), list);
  if (error != 0) throw SystemFailure(error, staging_->path() + "/" + name);
}

// Members see into each other, so that all are made again without one that could not be made.
void ImageBuild::CompileBubble() {
  LeaveDuplicatesOut();
  while (!CompileRound()) {
    for (Job& job : jobs_) {
      if (job.image) job.set->Remove(ImageNameOf(job.assembly->name));
      job.image.reset();
    }
  }
}

void ImageBuild::LeaveDuplicatesOut() {
  std::set<std::string> names;
  for (Job& job : jobs_) {
    if (job.failure.empty() && !names.insert(job.assembly->SimpleName()).second) {
      Fail(&job, "another assembly of its name is in the version bubble");
    }
  }
}

// Whether it went to its end; in a bubble, the first failure ends it.
bool ImageBuild::CompileRound() {
  for (const auto& [directory, set] : sets_) WriteReferences(directory);
  std::vector<Job*> round;
  for (Job& job : jobs_) {
    if (job.failure.empty()) round.push_back(&job);
  }
  bool whole = true;
  CompilerTasks tasks;
  tasks.count = round.size();
  tasks.at_once = mode_.one_at_a_time ? 1 : std::max(1U, std::thread::hardware_concurrency());
  tasks.command = [&](size_t index) -> const CompilerProcess::Command& {
    return Prepare(round[index]);
  };
  tasks.ended = [&](size_t index, const CompilerProcess::Result& result,
                    const std::string& output) {
    whole = Finish(round[index], result, output) || !bubble_;
    return whole;
  };
  RunCompilers(tasks);
  return whole;
}

const CompilerProcess::Command& ImageBuild::Prepare(Job* job) {
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
      output + "/" + kOutputName, bubble_};
  job->command.executable = compiler_->executable();
  job->command.arguments = compiler_->Arguments(input, mode_);
  job->command.environment = Compiler::Environment(mode_, output);
  // The caller's nice value is inherited; only at its lowest does the compile give way to all.
  job->command.idle_classes =
      mode_.one_at_a_time && getpriority(PRIO_PROCESS, 0) == kLowestPriority;
  job->command.confinement = job->confinement.get();
  return job->command;
}

// Whether the job has its image now.
bool ImageBuild::Finish(Job* job, const CompilerProcess::Result& result,
                        const std::string& output) {
  std::string failure = FailureOf(*job, result, output);
  if (failure.empty()) failure = Adopt(job);
  if (!failure.empty()) {
    Fail(job, failure);
    for (size_t begin = 0; begin < output.size();) {
      const size_t end = std::min(output.find('\n', begin), output.size());
      if (end > begin) HOST_LOG(INFO, "compiler: %s", output.substr(begin, end - begin).c_str());
      begin = end + 1;
    }
  }
  RemoveTree(staging_->directory(), job->output_directory);
  job->confinement.reset();
  return failure.empty();
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

void ImageBuild::Fail(Job* job, const std::string& reason) {
  job->failure = reason;
  HOST_LOG(WARNING, "No native image for %s: %s", job->assembly->path().c_str(), reason.c_str());
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
