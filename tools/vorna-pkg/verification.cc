// SPDX-License-Identifier: MIT
#include "verification.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <variant>

#include "base/files.h"
#include "base/package_registry.h"
#include "digest.h"
#include "directories.h"
#include "image_check.h"
#include "install_record.h"
#include "installed_packages.h"
#include "manifest.h"
#include "messages.h"

namespace vorna_pkg {
namespace {

using host::UniqueFd;

class Verification {
 public:
  explicit Verification(const std::string& id) : id_(id), root_(OpenPackage(id)) {}

  Verdict Run() {
    CheckManifest();
    CheckFiles();
    const bool wants_images = ReportImages();
    if (faults_ != 0) return Verdict::kDamaged;
    return wants_images ? Verdict::kImagesWanted : Verdict::kGood;
  }

 private:
  void Fault(const std::string& text) {
    Say("damaged  " + text);
    ++faults_;
  }

  void Fault(const std::string& path, const std::string& cause) { Fault(path + ": " + cause); }

  void CheckManifest() {
    std::string text;
    if (const int error = host::ReadFileAt(root_.get(), kManifestName, kLargestManifest, &text)) {
      Fault(kManifestName, host::ErrorText(error));
      return;
    }
    try {
      const Manifest manifest(text, kManifestName);
      manifest.CheckId(id_);
      manifest.CheckMainApplication();
      manifest.CheckApplications([&](const std::string& path) { return FaultOf(path).empty(); });
    } catch (const Error& error) {
      Fault(error.what());
    }
  }

  void CheckFiles() {
    std::string text;
    const int error =
        host::ReadFileAt(root_.get(), kInstallRecordName, kLargestInstallRecord, &text);
    if (error == ENOENT) {
      Say("unknown  files: vorna-pkg did not install them");
      return;
    }
    const auto record = error == 0 ? InstallRecord::Parse(text) : std::nullopt;
    if (!record) {
      Fault(kInstallRecordName, "it cannot be read");
      return;
    }
    for (const auto& [path, file] : record->files) {
      const std::string fault = FaultOf(path, &file);
      if (!fault.empty()) Fault(path, fault);
    }
    for (const auto& [path, target] : record->links) {
      if (TargetOf(path) != target) Fault(path, "it is not the link that was installed");
    }
    if (faults_ == 0) {
      Say("good     " + Count(record->files.size(), "file") + " as installed");
    }
  }

  // What is wrong with a file; empty when nothing is.
  std::string FaultOf(const std::string& path, const InstalledFile* expected = nullptr) const {
    const auto [directory, name] = SplitPath(path);
    const UniqueFd parent = host::OpenDirectoryBeneath(root_.get(), directory);
    struct stat status;
    const UniqueFd file =
        parent ? host::OpenRegularFileAt(parent.get(), name, &status) : UniqueFd();
    if (!file) return host::ErrorText(errno);
    if (expected == nullptr) return {};
    if (static_cast<uint64_t>(status.st_size) != expected->size ||
        Sha256OfFile(file.get()) != expected->sha256) {
      return "it changed since it was installed";
    }
    return {};
  }

  std::string TargetOf(const std::string& path) const {
    const auto [directory, name] = SplitPath(path);
    const UniqueFd parent = host::OpenDirectoryBeneath(root_.get(), directory);
    std::string target(PATH_MAX, '\0');
    const ssize_t length =
        parent ? readlinkat(parent.get(), name.c_str(), target.data(), target.size()) : -1;
    target.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return target;
  }

  // Whether the package asks for images that it does not have.
  bool ReportImages() const {
    const auto found = host::FindPackage(id_);
    const auto* package = std::get_if<host::Package>(&found);
    if (package == nullptr) return false;
    const bool asks = AsksForCompile(*package);
    bool wants_images = false;
    for (const ImageFinding& finding : CheckImages(*package, Depth::kThorough)) {
      if (finding.state == ImageState::kMissing && !asks) continue;
      std::string state = NameOf(finding.state);
      state.resize(9, ' ');
      Say(state + finding.assembly + (finding.reason.empty() ? "" : ": " + finding.reason));
      const bool is_final =
          finding.state == ImageState::kFresh || finding.state == ImageState::kNone;
      wants_images = wants_images || !is_final;
    }
    return wants_images;
  }

  std::string id_;
  UniqueFd root_;
  size_t faults_ = 0;
};

}  // namespace

Verdict VerifyPackage(const std::string& id) {
  return Verification(id).Run();
}

}  // namespace vorna_pkg
