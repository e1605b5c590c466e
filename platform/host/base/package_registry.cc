// SPDX-License-Identifier: MIT
#include "base/package_registry.h"

#include <dirent.h>
#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>

#include "base/files.h"
#include "base/text.h"

namespace host {
namespace {

constexpr const char* kAreas[] = {kReadWriteApplications, kReadOnlyApplications};
constexpr char kManifestName[] = "package.ini";
constexpr size_t kLargestManifest = 1 << 20;
constexpr size_t kLongestId = 128;

struct KeyFileFree {
  void operator()(GKeyFile* file) const { g_key_file_free(file); }
};
struct StringListFree {
  void operator()(char** list) const { g_strfreev(list); }
};
struct GFree {
  void operator()(char* text) const { g_free(text); }
};
struct ErrorFree {
  void operator()(GError* error) const { g_error_free(error); }
};
using KeyFile = std::unique_ptr<GKeyFile, KeyFileFree>;
using StringList = std::unique_ptr<char*, StringListFree>;

// A manifest that cannot be used; caught where it is read.
struct Malformed {
  std::string cause;
};

[[noreturn]] void ThrowMalformed(GError* error) {
  const std::unique_ptr<GError, ErrorFree> owner(error);
  throw Malformed{error->message};
}

// The key's value, or an empty string where the group does not have it.
std::string ReadString(GKeyFile* file, const std::string& group, const char* key) {
  GError* error = nullptr;
  const std::unique_ptr<char, GFree> value(g_key_file_get_string(file, group.c_str(), key, &error));
  // A value with a broken escape comes with an error and, all the same, a string.
  if (error == nullptr) return value.get();
  if (!g_error_matches(error, G_KEY_FILE_ERROR, G_KEY_FILE_ERROR_KEY_NOT_FOUND) &&
      !g_error_matches(error, G_KEY_FILE_ERROR, G_KEY_FILE_ERROR_GROUP_NOT_FOUND)) {
    ThrowMalformed(error);
  }
  g_error_free(error);
  return {};
}

std::vector<std::pair<std::string, std::string>> ReadMetadata(GKeyFile* file,
                                                              const std::string& application_id) {
  const std::string group = "Metadata " + application_id;
  std::vector<std::pair<std::string, std::string>> metadata;
  const StringList keys(g_key_file_get_keys(file, group.c_str(), nullptr, nullptr));
  for (char** key = keys.get(); key != nullptr && *key != nullptr; ++key) {
    metadata.emplace_back(*key, ReadString(file, group, *key));
  }
  return metadata;
}

std::vector<Application> ReadApplications(GKeyFile* file) {
  constexpr std::string_view kPrefix = "Application ";
  std::vector<Application> applications;
  const StringList groups(g_key_file_get_groups(file, nullptr));
  for (char** group = groups.get(); *group != nullptr; ++group) {
    const std::string_view name = *group;
    if (name.substr(0, kPrefix.size()) != kPrefix) continue;
    Application application;
    application.id = name.substr(kPrefix.size());
    application.type = ReadString(file, *group, "Type");
    application.executable = ReadString(file, *group, "Executable");
    application.metadata = ReadMetadata(file, application.id);
    applications.push_back(std::move(application));
  }
  return applications;
}

Package ParseManifest(const std::string& content, const std::string& id, std::string root) {
  const KeyFile file(g_key_file_new());
  GError* error = nullptr;
  if (!g_key_file_load_from_data(file.get(), content.data(), content.size(), G_KEY_FILE_NONE,
                                 &error)) {
    ThrowMalformed(error);
  }
  Package package;
  package.id = ReadString(file.get(), "Package", "Id");
  if (package.id != id) {
    throw Malformed{"its Id is \"" + package.id + "\", the directory's name is \"" + id + "\""};
  }
  package.root = std::move(root);
  package.main_application = ReadString(file.get(), "Package", "MainApplication");
  package.applications = ReadApplications(file.get());
  return package;
}

// Looks in one area; nothing where the area has no directory entry of that name.
std::optional<std::variant<Package, LookupFailure>> FindInArea(const char* area,
                                                               const std::string& id) {
  const std::string root = std::string(area) + "/" + id;
  const std::string manifest = root + "/" + kManifestName;
  const UniqueFd area_directory = OpenDirectory(area);
  if (!area_directory) return std::nullopt;
  const UniqueFd directory = OpenDirectoryAt(area_directory.get(), id);
  if (!directory) {
    if (errno == ENOENT) return std::nullopt;
    return LookupFailure{false, root + ": " + ErrorText(errno)};
  }
  std::string content;
  if (const int error = ReadFileAt(directory.get(), kManifestName, kLargestManifest, &content)) {
    const bool special = error == EINVAL || error == ELOOP || error == ENXIO;
    return LookupFailure{false,
                         manifest + ": " + (special ? "not a regular file" : ErrorText(error))};
  }
  try {
    return ParseManifest(content, id, root);
  } catch (const Malformed& malformed) {
    return LookupFailure{false, manifest + ": " + malformed.cause};
  }
}

std::vector<std::string> EveryPackageId() {
  std::vector<std::string> ids;
  for (const char* area : kAreas) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(area), &closedir);
    while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
      if (IsValidPackageId(entry->d_name)) ids.emplace_back(entry->d_name);
    }
  }
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

}  // namespace

const Application* Package::FindApplication(std::string_view application_id) const {
  const auto found =
      std::find_if(applications.begin(), applications.end(),
                   [&](const Application& candidate) { return candidate.id == application_id; });
  return found == applications.end() ? nullptr : &*found;
}

bool IsValidPackageId(std::string_view id) {
  return !id.empty() && id.size() <= kLongestId && id[0] != '.' &&
         std::all_of(id.begin(), id.end(), [](char character) {
           return g_ascii_isalnum(character) || character == '.' || character == '_' ||
                  character == '-';
         });
}

std::variant<Package, LookupFailure> FindPackage(const std::string& id) {
  if (!IsValidPackageId(id)) {
    const std::string shown = id.size() <= kLongestId ? id : id.substr(0, kLongestId) + "...";
    return LookupFailure{true, "\"" + shown + "\" is no package id"};
  }
  for (const char* area : kAreas) {
    if (auto found = FindInArea(area, id)) return std::move(*found);
  }
  return LookupFailure{
      true, "no package " + id + " in " + kReadWriteApplications + " or " + kReadOnlyApplications};
}

std::variant<Package, LookupFailure> FindPackageOfApplication(const std::string& application_id) {
  if (!IsValidPackageId(application_id)) return FindPackage(application_id);
  LookupFailure failure{true, "no installed package lists the application " + application_id};
  const auto lists_it = [&](const std::string& package_id, auto* result) {
    *result = FindPackage(package_id);
    if (const auto* broken = std::get_if<LookupFailure>(result)) {
      if (!broken->absent) failure = *broken;
      return false;
    }
    return std::get<Package>(*result).FindApplication(application_id) != nullptr;
  };
  std::variant<Package, LookupFailure> result;
  for (size_t end = application_id.size(); end != std::string::npos && end > 0;
       end = application_id.rfind('.', end - 1)) {
    if (lists_it(application_id.substr(0, end), &result)) return result;
  }
  for (const std::string& package_id : EveryPackageId()) {
    if (lists_it(package_id, &result)) return result;
  }
  return failure;
}

}  // namespace host
