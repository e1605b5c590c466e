// SPDX-License-Identifier: MIT
#include "manifest.h"

#include <algorithm>
#include <cstdlib>

#include "base/package_registry.h"

namespace vorna_pkg {
namespace {

constexpr char kApplicationPrefix[] = "Application ";
constexpr char kMetadataPrefix[] = "Metadata ";

struct GFree {
  void operator()(void* memory) const { g_free(memory); }
};
using ErrorPtr = std::unique_ptr<GError, decltype(&g_error_free)>;

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

std::string Trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

// The first line that GLib does not take. It reads line by line and its messages have no number:
// the shortest beginning of the text that it refuses ends with that line.
size_t FaultyLineOf(const std::string& text) {
  const std::vector<std::string> lines = LinesOf(text);
  size_t good = 0;
  size_t bad = lines.size();
  while (good + 1 < bad) {
    const size_t middle = (good + bad) / 2;
    std::string beginning;
    for (size_t i = 0; i < middle; ++i) beginning += lines[i] + "\n";
    const std::unique_ptr<GKeyFile, decltype(&g_key_file_free)> file(g_key_file_new(),
                                                                     &g_key_file_free);
    const bool is_good = g_key_file_load_from_data(file.get(), beginning.data(), beginning.size(),
                                                   G_KEY_FILE_NONE, nullptr) != FALSE;
    (is_good ? good : bad) = middle;
  }
  return bad;
}

// The last line that sets the key, or that begins the group; 0 when there is none.
size_t LineOf(const std::string& text, const std::string& group, const std::string& key) {
  const std::vector<std::string> lines = LinesOf(text);
  size_t group_line = 0;
  size_t key_line = 0;
  bool in_group = false;
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string line = Trimmed(lines[i]);
    if (!line.empty() && line[0] == '[') {
      in_group = line == "[" + group + "]";
      if (in_group) group_line = i + 1;
    } else if (in_group && Trimmed(line.substr(0, line.find('='))) == key) {
      key_line = i + 1;
    }
  }
  return key_line != 0 ? key_line : group_line;
}

bool HasControlCharacter(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](char c) { return g_ascii_iscntrl(c); });
}

std::string NoPackageId(const std::string& id) {
  return "\"" + id +
         "\" is no package id: one has 1 to 128 characters of A-Z a-z 0-9 . _ - and does not begin "
         "with a dot";
}

}  // namespace

Manifest::Manifest(std::string text, std::string shown_path)
    : text_(std::move(text)), path_(std::move(shown_path)), file_(g_key_file_new()) {
  GError* error = nullptr;
  if (text_.empty() || g_key_file_load_from_data(file_.get(), text_.data(), text_.size(),
                                                 G_KEY_FILE_KEEP_COMMENTS, &error)) {
    return;
  }
  const ErrorPtr owner(error, &g_error_free);
  throw Error(path_ + ":" + std::to_string(FaultyLineOf(text_)) + ": " + error->message);
}

std::string Manifest::Executable(const std::string& application) const {
  return Get(kApplicationPrefix + application, "Executable");
}

std::string Manifest::Type(const std::string& application) const {
  return Get(kApplicationPrefix + application, "Type");
}

std::string Manifest::Metadata(const std::string& application, const std::string& key) const {
  return Get(kMetadataPrefix + application, key);
}

std::vector<std::string> Manifest::Applications() const {
  constexpr std::string_view kPrefix = kApplicationPrefix;
  std::vector<std::string> applications;
  const std::unique_ptr<char*, decltype(&g_strfreev)> groups(
      g_key_file_get_groups(file_.get(), nullptr), &g_strfreev);
  for (char** group = groups.get(); *group != nullptr; ++group) {
    const std::string_view name = *group;
    if (name.substr(0, kPrefix.size()) == kPrefix) {
      applications.emplace_back(name.substr(kPrefix.size()));
    }
  }
  return applications;
}

void Manifest::SetExecutable(const std::string& application, const std::string& path) {
  Set(kApplicationPrefix + application, "Executable", path);
}

void Manifest::SetType(const std::string& application, const std::string& type) {
  Set(kApplicationPrefix + application, "Type", type);
}

void Manifest::SetMetadata(const std::string& application, const std::string& key,
                           const std::string& value) {
  Set(kMetadataPrefix + application, key, value);
}

void Manifest::CheckId(const std::string& package_id) const {
  const std::string own = PackageId();
  if (!host::IsValidPackageId(own)) throw ErrorAt("Package", "Id", NoPackageId(own));
  if (own != package_id) {
    throw ErrorAt("Package", "Id", "the Id is \"" + own + "\", not \"" + package_id + "\"");
  }
}

void Manifest::CheckMainApplication() const {
  const std::string main_application = MainApplication();
  if (!host::IsValidPackageId(main_application)) {
    throw ErrorAt("Package", "MainApplication",
                  "\"" + main_application + "\" is no id of an application");
  }
}

void Manifest::CheckApplications(const std::function<bool(const std::string&)>& is_file) const {
  const std::vector<std::string> applications = Applications();
  const std::string main_application = MainApplication();
  if (std::find(applications.begin(), applications.end(), main_application) == applications.end()) {
    throw ErrorAt("Package", "MainApplication",
                  "there is no group [Application " + main_application + "]");
  }
  for (const std::string& application : applications) CheckExecutable(application);
  if (!is_file(Executable(main_application))) {
    throw ErrorAt(kApplicationPrefix + main_application, "Executable",
                  "there is no file " + Executable(main_application) + " in the package");
  }
  if (Type(main_application).empty()) {
    throw ErrorAt(kApplicationPrefix + main_application, "Type", "it has no Type");
  }
}

void Manifest::CheckExecutable(const std::string& application) const {
  const std::string path = Executable(application);
  if (path.empty() ? application != MainApplication()
                   : path[0] != '/' && ("/" + path + "/").find("/../") == std::string::npos) {
    return;
  }
  throw ErrorAt(kApplicationPrefix + application, "Executable",
                "\"" + path + "\" is no path of a file in the package");
}

std::string Manifest::ToText() const {
  if (!is_changed_) return text_;
  const std::unique_ptr<char, GFree> text(g_key_file_to_data(file_.get(), nullptr, nullptr));
  return text.get();
}

std::string Manifest::Get(const std::string& group, const std::string& key) const {
  GError* error = nullptr;
  const std::unique_ptr<char, GFree> value(
      g_key_file_get_string(file_.get(), group.c_str(), key.c_str(), &error));
  if (value) return value.get();
  const ErrorPtr owner(error, &g_error_free);
  if (g_error_matches(error, G_KEY_FILE_ERROR, G_KEY_FILE_ERROR_KEY_NOT_FOUND) ||
      g_error_matches(error, G_KEY_FILE_ERROR, G_KEY_FILE_ERROR_GROUP_NOT_FOUND)) {
    return {};
  }
  throw ErrorAt(group, key, error->message);
}

void Manifest::Set(const std::string& group, const std::string& key, const std::string& value) {
  if (Get(group, key) == value) return;
  g_key_file_set_string(file_.get(), group.c_str(), key.c_str(), value.c_str());
  is_changed_ = true;
}

Error Manifest::ErrorAt(const std::string& group, const std::string& key,
                        const std::string& cause) const {
  const size_t line = LineOf(text_, group, key);
  return Error(path_ + (line == 0 ? "" : ":" + std::to_string(line)) + ": " + cause);
}

void CheckPackageId(const std::string& id) {
  if (!host::IsValidPackageId(id)) throw Error(NoPackageId(id));
}

void CheckMetadata(const std::pair<std::string, std::string>& metadata) {
  const auto& [key, value] = metadata;
  if (key.empty() || key[0] == '#' || key != Trimmed(key) ||
      key.find_first_of("=[]") != std::string::npos || HasControlCharacter(key + value) ||
      !host::IsValidUtf8(key + value)) {
    throw Error("\"" + key + "=" + value + "\" cannot stand in a manifest");
  }
}

}  // namespace vorna_pkg
