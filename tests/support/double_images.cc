// SPDX-License-Identifier: MIT
// The platform double's compiler: a native image is a placeholder that names its assembly.
#include <fcntl.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "base/files.h"
#include "images/pe_image.h"
#include "platform/native_image.h"
#include "platform_double.h"

namespace fs = std::filesystem;
using platform_double::Ask;

namespace {

bool IsReadyToRun(const std::string& path) {
  struct stat status;
  const host::UniqueFd file = host::OpenRegularFileAt(AT_FDCWD, path, &status);
  return file && host::ReadPeImage(file.get(), status, false).kind == host::PeKind::kReadyToRun;
}

bool BeginsLikeAnAssembly(const fs::path& path) {
  char begin[2] = {};
  std::ifstream(path, std::ios::binary).read(begin, sizeof begin);
  return begin[0] == 'M' && begin[1] == 'Z';
}

bool IsCandidate(const fs::directory_entry& entry) {
  const std::string name = entry.path().filename();
  return entry.symlink_status().type() == fs::file_type::regular && name.ends_with(".dll") &&
         !name.ends_with(".ni.dll") && !name.ends_with(".resources.dll") &&
         BeginsLikeAnAssembly(entry.path()) && !IsReadyToRun(entry.path());
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
