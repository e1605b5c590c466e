// SPDX-License-Identifier: MIT
#include "image_choice.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <optional>

#include "base/files.h"
#include "base/text.h"
#include "dotnet/frameworks.h"
#include "images/image_manifest.h"
#include "images/pe_image.h"

namespace vorna_run {
namespace {

// From here on the runtime takes an image named X.ni.dll for an assembly "X.ni".
constexpr int kFirstMajorWithoutImageNames = 11;

struct Directory {
  std::string path;
  host::UniqueFd images;
  std::optional<host::ImageManifest> manifest;
  std::string fault;  // why the manifest is of no use
};

std::string FaultOf(const host::ImageManifest& manifest, int framework_major) {
  const auto core = manifest.frameworks.find(host::kCoreFramework);
  if (core == manifest.frameworks.end()) return "made for no framework";
  if (host::MajorOf(core->second) != framework_major) {
    return "made for " + core->first + " " + core->second;
  }
  return {};
}

Directory ReadDirectory(const std::string& path, int framework_major) {
  Directory directory;
  directory.path = path;
  directory.images = host::OpenDirectory(path + "/" + host::kImageDirectoryName);
  std::string text;
  if (!directory.images) {
    directory.fault = "not compiled";
  } else if (const int error = host::ReadFileAt(directory.images.get(), host::kManifestFileName,
                                                host::kLargestManifestFile, &text)) {
    directory.fault = "manifest: " + host::ErrorText(error);
  } else {
    std::string cause;
    directory.manifest = host::ImageManifest::Parse(text, &cause);
    directory.fault =
        directory.manifest ? FaultOf(*directory.manifest, framework_major) : "manifest: " + cause;
  }
  return directory;
}

// An unchanged inode with unchanged times is the same file. One that was copied or restored may
// still hold the same bytes, or others of the same size and time: its module's version id tells.
bool IsStill(const std::string& assembly, const host::InputIdentity& input) {
  struct stat status;
  if (stat(assembly.c_str(), &status) != 0 || status.st_size != input.size ||
      host::ModificationTimeNs(status) != input.modified) {
    return false;
  }
  if (status.st_ino == input.inode && host::ChangeTimeNs(status) == input.changed) return true;
  const host::UniqueFd file = host::OpenRegularFileAt(AT_FDCWD, assembly);
  if (!file) return false;
  const host::PeImage image = host::ReadPeImage(file.get(), status, true);
  return image.metadata_read && host::HexMvid(image.metadata.mvid) == input.mvid;
}

Choice Choose(const std::string& assembly, const Directory& directory) {
  Choice choice{assembly, {}, directory.fault};
  if (!choice.reason.empty()) return choice;
  const std::string name = assembly.substr(directory.path.size() + 1);
  const auto found = directory.manifest->assemblies.find(name);
  if (found == directory.manifest->assemblies.end()) {
    choice.reason = "not in the manifest";
    return choice;
  }
  const host::ImageRecord& record = found->second;
  const std::string image_name = host::ImageNameOf(name);
  struct stat status;
  if (!record.image) {
    choice.reason = record.reason;
  } else if (fstatat(directory.images.get(), image_name.c_str(), &status, AT_SYMLINK_NOFOLLOW) !=
             0) {
    choice.reason = "image missing";
  } else if (!S_ISREG(status.st_mode) || status.st_size != record.image->size ||
             host::ModificationTimeNs(status) != record.image->modified) {
    choice.reason = "image changed since it was made";
  } else if (!IsStill(assembly, record.input)) {
    choice.reason = "assembly changed since the image was made";
  } else {
    choice.image = directory.path + "/" + host::kImageDirectoryName + "/" + image_name;
  }
  return choice;
}

// The runtime ends a program in which one member of a version bubble is not the one that the others
// were compiled with: the whole bubble or nothing of it.
void DropBrokenBubbles(const std::map<std::string, Directory>& directories,
                       std::vector<Choice>* choices) {
  const auto bubble_of = [&](const std::string& assembly) -> const host::Bubble* {
    const auto found = directories.find(assembly.substr(0, assembly.rfind('/')));
    if (found == directories.end() || !found->second.manifest) return nullptr;
    const auto& bubble = found->second.manifest->bubble;
    return bubble ? &*bubble : nullptr;
  };
  const auto is_used = [&](const std::string& assembly, const std::string& bubble_id) {
    const host::Bubble* bubble = bubble_of(assembly);
    return bubble != nullptr && bubble->id == bubble_id &&
           std::any_of(choices->begin(), choices->end(), [&](const Choice& choice) {
             return choice.assembly == assembly && !choice.image.empty();
           });
  };
  std::map<const host::Bubble*, bool> whole;
  for (const Choice& choice : *choices) {
    const host::Bubble* bubble = bubble_of(choice.assembly);
    if (bubble == nullptr || whole.count(bubble) != 0) continue;
    whole[bubble] =
        std::all_of(bubble->members.begin(), bubble->members.end(),
                    [&](const std::string& member) { return is_used(member, bubble->id); });
  }
  for (Choice& choice : *choices) {
    const host::Bubble* bubble = bubble_of(choice.assembly);
    if (bubble == nullptr || whole[bubble] || choice.image.empty()) continue;
    choice.image.clear();
    choice.reason = "another member of its version bubble cannot be used";
  }
}

}  // namespace

std::vector<Choice> ChooseImages(const std::vector<std::string>& trusted_assemblies,
                                 const std::string& package_root, int framework_major) {
  const std::string prefix = package_root + "/";
  std::map<std::string, Directory> directories;
  std::vector<Choice> choices;
  for (const std::string& assembly : trusted_assemblies) {
    if (assembly.compare(0, prefix.size(), prefix) != 0 || !host::EndsWith(assembly, ".dll")) {
      continue;
    }
    if (framework_major >= kFirstMajorWithoutImageNames) {
      choices.push_back(
          {assembly,
           {},
           host::Format(".NET %d does not know images by this name", framework_major)});
      continue;
    }
    const std::string path = assembly.substr(0, assembly.rfind('/'));
    auto directory = directories.find(path);
    if (directory == directories.end()) {
      directory = directories.emplace(path, ReadDirectory(path, framework_major)).first;
    }
    choices.push_back(Choose(assembly, directory->second));
  }
  DropBrokenBubbles(directories, &choices);
  return choices;
}

}  // namespace vorna_run
