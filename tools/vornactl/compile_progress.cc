// SPDX-License-Identifier: MIT
#include "compile_progress.h"

#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <tuple>

#include "base/failure.h"
#include "images/assembly_tree.h"
#include "images/image_manifest.h"
#include "stale_images.h"
#include "terminal.h"

namespace vornactl {
namespace {

namespace fs = std::filesystem;

// Directories come and go while they are read: what cannot be read any more is passed over.
void ForEachFile(const fs::path& directory, const std::function<void(const fs::path&)>& visit) {
  std::error_code error;
  fs::recursive_directory_iterator files(directory, fs::directory_options::skip_permission_denied,
                                         error);
  while (!error && files != fs::end(files)) {
    visit(files->path());
    files.increment(error);
  }
}

}  // namespace

CompileProgress::CompileProgress(const std::string& package) : facts_(FactsOf(package)) {
  // The clock of files, which is behind the exact one.
  clock_gettime(CLOCK_REALTIME_COARSE, &file_begin_);
  if (!facts_.is_target()) return;
  try {
    for (const std::string& name : NamesOfCandidates(facts_)) {
      wanted_.insert(host::ImageNameOf(name));
      ++wanted_count_;
    }
  } catch (const host::Failure&) {
    // This user may not read the package, the daemon may: what is made shows when it is in place.
  }
}

std::string CompileProgress::ElapsedText() const {
  return Elapsed(std::chrono::steady_clock::now() - begin_);
}

std::string CompileProgress::ImagesText() const {
  const size_t made = facts_.is_installed() ? CountStaged() + CountInPlace() : 0;
  if (made >= wanted_count_) return Count(made, "native image");
  return std::to_string(made) + " of " + Count(wanted_count_, "native image");
}

// The area's staging place is shared by all packages: only what can be an image of this one counts.
size_t CompileProgress::CountStaged() const {
  size_t count = 0;
  const fs::path area = fs::path(facts_.root).parent_path();
  ForEachFile(area / host::kStagingDirectoryName, [&](const fs::path& file) {
    count += wanted_.count(file.filename()) != 0 && IsNewImage(file) ? 1 : 0;
  });
  return count;
}

size_t CompileProgress::CountInPlace() const {
  size_t count = 0;
  ForEachFile(facts_.root, [&](const fs::path& file) {
    count += file.parent_path().filename() == host::kImageDirectoryName && IsNewImage(file) ? 1 : 0;
  });
  return count;
}

bool CompileProgress::IsNewImage(const std::string& path) const {
  struct stat status;
  return path.ends_with(".ni.dll") && lstat(path.c_str(), &status) == 0 &&
         std::tie(status.st_mtim.tv_sec, status.st_mtim.tv_nsec) >=
             std::tie(file_begin_.tv_sec, file_begin_.tv_nsec);
}

}  // namespace vornactl
