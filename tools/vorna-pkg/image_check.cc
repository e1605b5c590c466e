// SPDX-License-Identifier: MIT
#include "image_check.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <system_error>

#include "base/failure.h"
#include "base/files.h"
#include "base/text.h"
#include "digest.h"
#include "directories.h"
#include "dotnet/frameworks.h"
#include "images/image_manifest.h"
#include "images/pe_image.h"
#include "installed_packages.h"

namespace vorna_pkg {
namespace {

using host::UniqueFd;

// Where the compile of a package looks for assemblies. Elsewhere only what was compiled counts.
constexpr char kBin[] = "bin";
constexpr int kDeepest = 32;

// The major version of the framework that the application gets here; 0 when that cannot be told.
int FrameworkMajorOf(const host::Package& package, int root) {
  const host::Application* main = MainApplicationOf(package);
  if (main == nullptr || !host::EndsWith(main->executable, ".dll")) return 0;
  const auto [directory, name] = SplitPath(main->executable);
  const UniqueFd parent = host::OpenDirectoryBeneath(root, directory);
  std::string text;
  const std::string config = name.substr(0, name.rfind('.')) + ".runtimeconfig.json";
  if (!parent || host::ReadFileAt(parent.get(), config, host::kLargestRuntimeConfig, &text) != 0) {
    return 0;
  }
  try {
    return host::ResolveFrameworks(text).CoreMajor();
  } catch (const std::runtime_error&) {
    return 0;
  }
}

// The images of one directory, with what the compile wrote about them.
class ImageDirectory {
 public:
  ImageDirectory(int parent, Depth depth, int framework_major) : depth_(depth) {
    directory_ = host::OpenDirectoryAt(parent, host::kImageDirectoryName);
    std::string text;
    if (!directory_) {
      fault_ = {"", ImageState::kMissing, "not compiled"};
      return;
    }
    std::string cause;
    if (const int error = host::ReadFileAt(directory_.get(), host::kManifestFileName,
                                           host::kLargestManifestFile, &text)) {
      cause = host::ErrorText(error);
    } else {
      manifest_ = host::ImageManifest::Parse(text, &cause);
    }
    if (!manifest_) {
      fault_ = {"", ImageState::kDamaged, "the images' manifest cannot be used: " + cause};
    } else {
      CheckFramework(framework_major);
    }
  }

  bool exists() const { return static_cast<bool>(directory_); }
  const host::ImageManifest* manifest() const { return manifest_ ? &*manifest_ : nullptr; }

  ImageFinding Judge(const std::string& name, const struct stat& status,
                     const host::PeImage& assembly) const {
    if (fault_) return *fault_;
    const auto found = manifest_->assemblies.find(name);
    if (found == manifest_->assemblies.end()) {
      return {"", ImageState::kMissing, "added since the package was compiled"};
    }
    const host::ImageRecord& record = found->second;
    if (!IsStill(record.input, status, assembly)) {
      return {"", ImageState::kStale, "the assembly changed since the package was compiled"};
    }
    if (!record.image) return {"", ImageState::kNone, record.reason};
    return JudgeImage(host::ImageNameOf(name), *record.image);
  }

 private:
  void CheckFramework(int framework_major) {
    const auto core = manifest_->frameworks.find(host::kCoreFramework);
    if (core == manifest_->frameworks.end()) {
      fault_ = {"", ImageState::kStale, "made for no framework"};
    } else if (framework_major != 0 && host::MajorOf(core->second) != framework_major) {
      fault_ = {"", ImageState::kStale,
                host::Format("made for %s %s, the application gets %d", core->first.c_str(),
                             core->second.c_str(), framework_major)};
    }
  }

  static bool IsStill(const host::InputIdentity& input, const struct stat& status,
                      const host::PeImage& assembly) {
    return status.st_size == input.size && host::ModificationTimeNs(status) == input.modified &&
           host::HexMvid(assembly.metadata.mvid) == input.mvid;
  }

  ImageFinding JudgeImage(const std::string& name, const host::ImageIdentity& identity) const {
    struct stat status;
    const UniqueFd image = host::OpenRegularFileAt(directory_.get(), name, &status);
    if (!image && errno == ENOENT) return {"", ImageState::kMissing, "the image is gone"};
    if (!image) return {"", ImageState::kDamaged, "the image: " + host::ErrorText(errno)};
    if (status.st_size != identity.size || host::ModificationTimeNs(status) != identity.modified) {
      return {"", ImageState::kDamaged, "the image changed since it was made"};
    }
    if (depth_ == Depth::kThorough && Sha256OfFile(image.get()) != identity.sha256) {
      return {"", ImageState::kDamaged, "the image's bytes are not those that were made"};
    }
    return {"", ImageState::kFresh, ""};
  }

  Depth depth_;
  UniqueFd directory_;
  std::optional<host::ImageManifest> manifest_;
  std::optional<ImageFinding> fault_;  // of every image
};

class ImageCheck {
 public:
  ImageCheck(const host::Package& package, Depth depth) : package_(package), depth_(depth) {}

  std::vector<ImageFinding> Run() {
    const UniqueFd root = OpenPackage(package_.id);
    if (depth_ == Depth::kThorough) framework_major_ = FrameworkMajorOf(package_, root.get());
    Visit(root.get(), "", 0);
    DropBrokenBubbles();
    return std::move(findings_);
  }

 private:
  void Visit(int directory, const std::string& path, int depth) {
    const ImageDirectory images(directory, depth_, framework_major_);
    const bool counts = images.exists() || (path + "/").rfind(std::string(kBin) + "/", 0) == 0;
    for (const std::string& name : NamesIn(directory, package_.root + "/" + path)) {
      struct stat status;
      const std::string child_path = JoinPath(path, name);
      if (fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
      if (S_ISDIR(status.st_mode)) {
        const UniqueFd child = host::OpenDirectoryAt(directory, name);
        const bool is_package = name.rfind(host::kImageDirectoryName, 0) != 0;
        if (child && is_package && depth < kDeepest) Visit(child.get(), child_path, depth + 1);
      } else if (counts && host::EndsWith(name, ".dll") && !host::EndsWith(name, ".ni.dll")) {
        JudgeFile(directory, name, child_path, images);
      }
    }
    if (const auto* manifest = images.manifest(); manifest != nullptr && manifest->bubble) {
      bubbles_[path] = *manifest->bubble;
    }
  }

  void JudgeFile(int directory, const std::string& name, const std::string& path,
                 const ImageDirectory& images) {
    struct stat status;
    const UniqueFd file = host::OpenRegularFileAt(directory, name, &status);
    if (!file) return;
    const host::PeImage assembly = host::ReadPeImage(file.get(), status, true);
    if (assembly.kind != host::PeKind::kIl || !assembly.metadata.culture.empty()) return;
    ImageFinding finding = images.Judge(name, status, assembly);
    finding.assembly = path;
    findings_.push_back(std::move(finding));
  }

  // The runtime ends a program whose version bubble is not whole: all of its images or none.
  void DropBrokenBubbles() {
    const auto bubble_of = [&](const ImageFinding& finding) {
      const auto found = bubbles_.find(SplitPath(finding.assembly).first);
      return found == bubbles_.end() ? nullptr : &found->second;
    };
    const auto is_fresh_member = [&](const std::string& member, const std::string& id) {
      return std::any_of(findings_.begin(), findings_.end(), [&](const ImageFinding& finding) {
        const host::Bubble* bubble = bubble_of(finding);
        return package_.root + "/" + finding.assembly == member && bubble != nullptr &&
               bubble->id == id && finding.state == ImageState::kFresh;
      });
    };
    std::map<std::string, bool> is_whole;  // by the directory
    for (const auto& entry : bubbles_) {
      const host::Bubble& bubble = entry.second;
      is_whole[entry.first] = std::all_of(
          bubble.members.begin(), bubble.members.end(),
          [&](const std::string& member) { return is_fresh_member(member, bubble.id); });
    }
    for (ImageFinding& finding : findings_) {
      const auto found = is_whole.find(SplitPath(finding.assembly).first);
      if (found == is_whole.end() || found->second || finding.state != ImageState::kFresh) continue;
      finding.state = ImageState::kStale;
      finding.reason = "another member of its version bubble is not fresh";
    }
  }

  const host::Package& package_;
  Depth depth_;
  int framework_major_ = 0;
  std::vector<ImageFinding> findings_;
  std::map<std::string, host::Bubble> bubbles_;  // by the directory, below the root
};

}  // namespace

const char* NameOf(ImageState state) {
  switch (state) {
    case ImageState::kFresh:
      return "fresh";
    case ImageState::kStale:
      return "stale";
    case ImageState::kDamaged:
      return "damaged";
    case ImageState::kMissing:
      return "missing";
    default:
      return "none";
  }
}

std::vector<ImageFinding> CheckImages(const host::Package& package, Depth depth) {
  return ImageCheck(package, depth).Run();
}

}  // namespace vorna_pkg
