// SPDX-License-Identifier: MIT
// The platform double's compiler: a native image is a placeholder that names its assembly.
#include <sys/resource.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>

#include "platform/native_image.h"
#include "platform_double.h"

namespace fs = std::filesystem;
using platform_double::Ask;

namespace {

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Little-endian fields of a file that may end anywhere: what lies beyond reads as 0.
class Image {
 public:
  explicit Image(const fs::path& path) {
    std::error_code error;
    if (!fs::is_regular_file(path, error)) return;
    std::ifstream stream(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(stream), {});
  }
  uint32_t At(uint64_t offset, int size) const {
    uint32_t value = 0;
    if (offset + size <= bytes_.size()) memcpy(&value, bytes_.data() + offset, size);
    return value;
  }
  size_t size() const { return bytes_.size(); }
  uint64_t Headers() const { return At(0, 2) == 0x5a4d ? At(0x3c, 4) : 0; }

  // The file offset of an address, by the section table; 0 when no section holds it or one of
  // them ends beyond the file.
  uint64_t Offset(uint32_t address) const {
    const uint64_t table = Headers() + 24 + At(Headers() + 20, 2);
    uint64_t found = 0;
    for (uint64_t i = 0, section = table; i < At(Headers() + 6, 2); ++i, section += 40) {
      const uint32_t start = At(section + 12, 4), length = At(section + 16, 4);
      if (uint64_t{At(section + 20, 4)} + length > size()) return 0;
      if (address >= start && address - start < length)
        found = At(section + 20, 4) + uint64_t{address} - start;
    }
    return found;
  }

 private:
  std::string bytes_;
};

bool IsReadyToRun(const fs::path& path) {
  const Image image(path);
  const uint64_t pe = image.Headers();
  if (pe == 0 || image.At(pe, 4) != 0x4550) return false;
  const uint32_t magic = image.At(pe + 24, 2);
  const uint64_t directories = pe + 24 + (magic == 0x20b ? 112 : 96);
  if ((magic != 0x10b && magic != 0x20b) || image.At(directories - 4, 4) <= 14) return false;
  const uint64_t cli = image.Offset(image.At(directories + 14 * 8, 4));
  const uint64_t header = cli ? image.Offset(image.At(cli + 64, 4)) : 0;
  return header != 0 && image.At(header, 4) == 0x00525452;
}

bool IsCandidate(const fs::directory_entry& entry) {
  const std::string name = entry.path().filename();
  return entry.symlink_status().type() == fs::file_type::regular && EndsWith(name, ".dll") &&
         !EndsWith(name, ".ni.dll") && !EndsWith(name, ".resources.dll") &&
         Image(entry.path()).Headers() != 0 && !IsReadyToRun(entry.path());
}

// A compile and a removal never meet.
std::mutex image_mutex;

void Compile(const fs::path& directory) {
  std::lock_guard lock(image_mutex);
  std::error_code error;
  std::vector<fs::path> candidates;
  for (const auto& entry : fs::recursive_directory_iterator(directory, error))
    if (IsCandidate(entry)) candidates.push_back(entry.path());
  for (const fs::path& assembly : candidates) {
    const fs::path images = assembly.parent_path() / ".native_image";
    const fs::path staged = images / (assembly.stem().string() + ".staged");
    fs::create_directory(images, error);
    std::ofstream(staged) << "native image of " << assembly.string() << "\n";
    fs::rename(staged, images / (assembly.stem().string() + ".ni.dll"), error);
  }
}

// What a compile was asked for: its subject, the flags, the threads and the caller's nice value.
platform_double::Call CompileCall(const char* function, const char* subject,
                                  const NativeImageOption* option) {
  return {function,
          {subject ? subject : "(null)", std::to_string(option ? option->flags : 0),
           option && option->thread_count ? option->thread_count : "-",
           std::to_string(getpriority(PRIO_PROCESS, 0))}};
}

}  // namespace

extern "C" {

int initNativeImageCommon() {
  return Ask({"initNativeImageCommon", {}}).result;
}

int finalizeNativeImageCommon() {
  return Ask({"finalizeNativeImageCommon", {}}).result;
}

int createNativeImagesUnderPackageRoot(const char* package_id, const NativeImageOption* option) {
  const auto call = CompileCall("createNativeImagesUnderPackageRoot", package_id, option);
  if (const int result = Ask(call).result) return result;
  if (!package_id || !option) return NI_ERROR_INVALID_ARGUMENT;
  const std::string root = platform_double::PackageRoot(package_id);
  if (root.empty()) return NI_ERROR_UNKNOWN_PACKAGE;
  Compile(root + "/bin");
  return 0;
}

int createNativeImagesUnderDirs(const char* directories, const NativeImageOption* option) {
  const auto call = CompileCall("createNativeImagesUnderDirs", directories, option);
  if (const int result = Ask(call).result) return result;
  if (!directories || !option) return NI_ERROR_INVALID_ARGUMENT;
  std::istringstream list(directories);
  for (std::string directory; std::getline(list, directory, ':');) Compile(directory);
  return 0;
}

int removeNativeImagesUnderPackageRoot(const char* package_id) {
  const std::string id = package_id ? package_id : "(null)";
  if (const int result = Ask({"removeNativeImagesUnderPackageRoot", {id}}).result) return result;
  const std::string root = package_id ? platform_double::PackageRoot(package_id) : "";
  if (root.empty()) return NI_ERROR_UNKNOWN_PACKAGE;
  std::lock_guard lock(image_mutex);
  std::error_code error;
  std::vector<fs::path> image_directories;
  for (const auto& entry : fs::recursive_directory_iterator(root, error))
    if (entry.path().filename() == ".native_image" &&
        entry.symlink_status().type() == fs::file_type::directory)
      image_directories.push_back(entry.path());
  for (const fs::path& directory : image_directories) fs::remove_all(directory, error);
  return error ? NI_ERROR_SYSTEM : 0;
}

bool isReadyToRunImage(const char* path) {
  const int result = Ask({"isReadyToRunImage", {path ? path : "(null)"}}).result;
  return result != 0 || (path && IsReadyToRun(path));
}

}  // extern "C"
