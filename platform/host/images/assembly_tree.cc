// SPDX-License-Identifier: MIT
#include "images/assembly_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "base/failure.h"
#include "base/files.h"
#include "base/text.h"
#include "images/pe_image.h"

namespace host {
namespace {

// Each level holds a descriptor and stack; no package is nested as deep as this.
constexpr int kDeepest = 32;

struct Entry {
  std::string name;
  mode_t type;
};

std::vector<Entry> SortedEntries(int directory, const std::string& path) {
  UniqueFd own = OpenDirectoryAt(directory, ".");
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(own ? fdopendir(own.get()) : nullptr, &closedir);
  if (!stream) throw SystemFailure(errno, path);
  own.Release();
  std::vector<Entry> entries;
  while (const dirent* entry = readdir(stream.get())) {
    struct stat status;
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    entries.push_back({name, status.st_mode & S_IFMT});
  }
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return entries;
}

bool IsImageDirectory(const std::string& name) {
  return name == kImageDirectoryName || name == kStagingDirectoryName;
}

// What the compiler would not take as the one file that is meant.
std::string FaultOf(const Assembly& assembly, bool metadata_read) {
  const std::string path = assembly.path();
  if (!metadata_read) return "its metadata cannot be read";
  if (!assembly.metadata.is_assembly) return "it is a module without an assembly";
  if (path.find_first_of("*?") != std::string::npos) {
    return "the compiler would expand the wildcard in its path";
  }
  if (!IsValidUtf8(path)) return "its path is not valid UTF-8";
  if (ImageNameOf(assembly.name).size() > NAME_MAX) return "its image's name would be too long";
  return {};
}

void AddAssembly(int directory, const std::string& path, const std::string& name,
                 std::vector<Assembly>* assemblies) {
  struct stat status;
  const UniqueFd file = OpenRegularFileAt(directory, name, &status);
  if (!file) return;
  const PeImage image = ReadPeImage(file.get(), status, true);
  if (image.kind != PeKind::kIl && image.kind != PeKind::kReadyToRun) return;
  if (!image.metadata.culture.empty()) return;
  Assembly assembly;
  assembly.directory = path;
  assembly.name = name;
  assembly.candidate = image.kind == PeKind::kIl;
  assembly.metadata = image.metadata;
  assembly.symbol_files = image.symbol_files;
  assembly.identity = IdentityOf(status, image.metadata);
  if (assembly.candidate) assembly.fault = FaultOf(assembly, image.metadata_read);
  assemblies->push_back(std::move(assembly));
}

void Scan(int directory, const std::string& path, int depth, std::vector<Assembly>* assemblies) {
  for (const Entry& entry : SortedEntries(directory, path)) {
    if (entry.type == S_IFREG && EndsWith(entry.name, ".dll") && !EndsWith(entry.name, ".ni.dll")) {
      AddAssembly(directory, path, entry.name, assemblies);
    } else if (entry.type == S_IFDIR && depth < kDeepest && !IsImageDirectory(entry.name)) {
      const UniqueFd child = OpenDirectoryAt(directory, entry.name);
      if (child) Scan(child.get(), path + "/" + entry.name, depth + 1, assemblies);
    }
  }
}

void Visit(int directory, const std::string& path, int depth, const ImageVisitor& visitor) {
  for (const Entry& entry : SortedEntries(directory, path)) {
    const bool is_directory = entry.type == S_IFDIR;
    if (is_directory ? IsImageDirectory(entry.name)
                     : entry.type == S_IFREG && EndsWith(entry.name, ".ni.dll")) {
      visitor(directory, path, entry.name, entry.type);
    } else if (is_directory && depth < kDeepest) {
      const UniqueFd child = OpenDirectoryAt(directory, entry.name);
      if (child) Visit(child.get(), path + "/" + entry.name, depth + 1, visitor);
    }
  }
}

}  // namespace

std::string Assembly::SimpleName() const {
  std::string simple = name.substr(0, name.size() - std::string_view(".dll").size());
  std::transform(simple.begin(), simple.end(), simple.begin(), g_ascii_tolower);
  return simple;
}

bool Assembly::CanBeReferredTo() const {
  return g_ascii_strcasecmp(metadata.name.c_str(), SimpleName().c_str()) == 0;
}

InputIdentity IdentityOf(const struct stat& status, const CliMetadata& metadata) {
  return {HexMvid(metadata.mvid), status.st_size, ModificationTimeNs(status), ChangeTimeNs(status),
          status.st_ino};
}

std::vector<Assembly> ScanAssemblies(int directory, const std::string& path) {
  std::vector<Assembly> assemblies;
  Scan(directory, path, 0, &assemblies);
  return assemblies;
}

void VisitImages(int directory, const std::string& path, const ImageVisitor& visitor) {
  Visit(directory, path, 0, visitor);
}

}  // namespace host
