// SPDX-License-Identifier: MIT
// A package's manifest, package.ini, as it is read and completed before it is installed. Whoever
// wrote it may be hostile; what is wrong with it is reported with its file and line. One thread.
#ifndef TOOLS_VORNA_PKG_MANIFEST_H
#define TOOLS_VORNA_PKG_MANIFEST_H

#include <glib.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "error.h"

namespace vorna_pkg {

inline constexpr char kManifestName[] = "package.ini";
inline constexpr size_t kLargestManifest = 1 << 20;
inline constexpr char kPreferAot[] = "http://kivor.org/metadata/prefer_dotnet_aot";

class Manifest {
 public:
  // Throws Error for what is no key file. The path is for messages.
  Manifest(std::string text, std::string shown_path);

  // Empty where the manifest does not say.
  std::string PackageId() const { return Get("Package", "Id"); }
  std::string MainApplication() const { return Get("Package", "MainApplication"); }
  std::string Executable(const std::string& application) const;
  std::string Type(const std::string& application) const;
  std::string Metadata(const std::string& application, const std::string& key) const;
  std::vector<std::string> Applications() const;

  void SetPackageId(const std::string& id) { Set("Package", "Id", id); }
  void SetMainApplication(const std::string& id) { Set("Package", "MainApplication", id); }
  void SetExecutable(const std::string& application, const std::string& path);
  void SetType(const std::string& application, const std::string& type);
  void SetMetadata(const std::string& application, const std::string& key,
                   const std::string& value);

  // Each throws Error with what is wrong: with the id, if it is not that one; with the main
  // application's id; with the applications of a package whose files the function knows by their
  // paths below the package's root.
  void CheckId(const std::string& package_id) const;
  void CheckMainApplication() const;
  void CheckApplications(const std::function<bool(const std::string&)>& is_file) const;

  // As it was read, unless something was set.
  std::string ToText() const;

 private:
  struct KeyFileFree {
    void operator()(GKeyFile* file) const { g_key_file_free(file); }
  };

  std::string Get(const std::string& group, const std::string& key) const;
  void Set(const std::string& group, const std::string& key, const std::string& value);
  Error ErrorAt(const std::string& group, const std::string& key, const std::string& cause) const;
  void CheckExecutable(const std::string& application) const;

  std::string text_;
  std::string path_;
  bool is_changed_ = false;
  std::unique_ptr<GKeyFile, KeyFileFree> file_;
};

// Each throws Error for what cannot stand in a manifest.
void CheckPackageId(const std::string& id);
void CheckMetadata(const std::pair<std::string, std::string>& metadata);

}  // namespace vorna_pkg

#endif
