// SPDX-License-Identifier: MIT
#include "package_plan.h"

#include <fcntl.h>

#include <set>
#include <variant>

#include "base/files.h"
#include "base/package_registry.h"
#include "directories.h"
#include "images/pe_image.h"
#include "installed_packages.h"
#include "messages.h"

namespace vorna_pkg {
namespace {

constexpr char kDefaultType[] = "dotnet";

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

// The path below the package's root of the assembly that a published directory starts with, from
// its runtime configuration; empty when that is not clear.
std::string OnlyExecutable(const SourceTree& source) {
  const std::vector<std::string> names = source.RuntimeConfigs();
  return names.size() == 1 ? kBinPrefix + names[0] + ".dll" : "";
}

[[noreturn]] void ThrowNoExecutable(const SourceTree& source) {
  const std::vector<std::string> names = source.RuntimeConfigs();
  if (names.empty()) {
    throw Error(source.path() +
                ": there is no *.runtimeconfig.json: give the directory that 'dotnet publish' made "
                "for an application, or name its main assembly with --main");
  }
  throw Error(source.path() + ": the main assembly may be any of " + Joined(names) +
              ": name it with --main");
}

// An update of published files names no package: it is the installed one that starts with the same
// assembly, whatever id it was given.
std::string IdOfInstalled(const std::string& executable) {
  std::vector<std::string> ids;
  for (const InstalledPackage& installed : FindInstalledPackages()) {
    const auto* package = std::get_if<host::Package>(&installed.package);
    const auto* main = package ? MainApplicationOf(*package) : nullptr;
    if (main != nullptr && main->executable == executable) ids.push_back(installed.id);
  }
  if (ids.size() > 1) {
    throw Error("several packages start with " + executable + ": " + Joined(ids) +
                ": say which with --id");
  }
  return ids.empty() ? "" : ids[0];
}

class Derivation {
 public:
  Derivation(const InstallOptions& options, bool is_update)
      : options_(options), is_update_(is_update), source_(options.directory) {}

  PackagePlan Run() {
    for (const auto& metadata : options_.metadata) CheckMetadata(metadata);
    Manifest manifest = Base();
    manifest.SetPackageId(id_);
    const std::string main = DeriveMainApplication(&manifest);
    DeriveExecutable(&manifest, main);
    DeriveType(&manifest, main);
    DeriveMetadata(&manifest, main);
    manifest.CheckApplications([&](const std::string& path) { return source_.HasFile(path); });
    CheckIsManaged(manifest.Executable(main));
    CheckOwnership(manifest);
    const std::string executable = manifest.Executable(main);
    const std::string config = executable.substr(0, executable.rfind('.')) + kRuntimeConfigSuffix;
    if (!source_.HasFile(config)) {
      Warn("there is no " + config + ": the application cannot be started without one");
    }
    std::string text = manifest.ToText();
    return {id_, std::move(source_), std::move(text)};
  }

 private:
  // What the new manifest is made of: the source's own, the installed one, or nothing.
  Manifest Base() {
    Manifest own(source_.manifest().value_or(""), source_.manifest_path());
    id_ = options_.id.empty() ? own.PackageId() : options_.id;
    if (id_.empty()) DeriveId();
    if (!options_.id.empty()) CheckPackageId(id_);
    if (!own.PackageId().empty()) own.CheckId(id_);
    if (!is_update_) return own;
    const host::UniqueFd package = OpenPackage(id_);
    std::string installed;
    if (source_.manifest() ||
        host::ReadFileAt(package.get(), kManifestName, kLargestManifest, &installed) != 0) {
      return own;
    }
    try {
      return Manifest(installed, "the installed " + std::string(kManifestName));
    } catch (const Error&) {  // an update is what mends it
      return own;
    }
  }

  void DeriveId() {
    const std::string executable = options_.main_assembly.empty()
                                       ? OnlyExecutable(source_)
                                       : kBinPrefix + options_.main_assembly;
    if (executable.empty()) ThrowNoExecutable(source_);
    if (is_update_) id_ = IdOfInstalled(executable);
    if (!id_.empty()) return;
    const std::string name = SplitPath(executable).second;
    id_ = name.substr(0, name.rfind(".dll"));
    if (!host::IsValidPackageId(id_)) {
      throw Error("no package can have the id \"" + id_ + "\": choose another with --id");
    }
  }

  std::string DeriveMainApplication(Manifest* manifest) const {
    if (manifest->MainApplication().empty()) {
      const std::vector<std::string> applications = manifest->Applications();
      manifest->SetMainApplication(applications.empty() ? id_ : applications[0]);
    }
    manifest->CheckMainApplication();
    return manifest->MainApplication();
  }

  void DeriveExecutable(Manifest* manifest, const std::string& main) const {
    if (!options_.main_assembly.empty()) {
      const std::string path = kBinPrefix + options_.main_assembly;
      if (!source_.HasFile(path)) {
        throw Error(source_.path() + ": there is no file " + options_.main_assembly +
                    ": --main names a published assembly");
      }
      manifest->SetExecutable(main, path);
      return;
    }
    // What the source's own manifest says is taken at its word, and checked.
    const std::string current = manifest->Executable(main);
    if (!current.empty() && (source_.manifest() || source_.HasFile(current))) return;
    const std::string only = OnlyExecutable(source_);
    if (only.empty()) ThrowNoExecutable(source_);
    manifest->SetExecutable(main, only);
  }

  void DeriveType(Manifest* manifest, const std::string& main) const {
    if (!options_.type.empty()) {
      CheckMetadata({"Type", options_.type});
      manifest->SetType(main, options_.type);
    } else if (manifest->Type(main).empty()) {
      manifest->SetType(main, kDefaultType);
    }
  }

  void DeriveMetadata(Manifest* manifest, const std::string& main) const {
    for (const auto& [key, value] : options_.metadata) manifest->SetMetadata(main, key, value);
    if (options_.no_compile) {
      manifest->SetMetadata(main, kPreferAot, "false");
    } else if (manifest->Metadata(main, kPreferAot).empty()) {
      manifest->SetMetadata(main, kPreferAot, "true");
    }
  }

  void CheckIsManaged(const std::string& executable) const {
    const std::string path = source_.SourceOf(executable);
    const auto [directory, name] = SplitPath(path);
    const host::UniqueFd parent = host::OpenDirectoryBeneath(source_.directory(), directory);
    struct stat status;
    const host::UniqueFd file =
        parent ? host::OpenRegularFileAt(parent.get(), name, &status) : host::UniqueFd();
    if (!file) throw SystemError(source_.path() + "/" + path);
    const host::PeKind kind = host::ReadPeImage(file.get(), status, false).kind;
    if (kind == host::PeKind::kNotPe || kind == host::PeKind::kNative) {
      throw Error(source_.path() + "/" + path + ": it is no .NET assembly");
    }
  }

  // An application belongs to one package; the second that lists it would not be found, or worse,
  // be found in the first one's place.
  void CheckOwnership(const Manifest& manifest) const {
    const std::vector<std::string> names = manifest.Applications();
    const std::set<std::string> own(names.begin(), names.end());
    for (const InstalledPackage& installed : FindInstalledPackages()) {
      const auto* package = std::get_if<host::Package>(&installed.package);
      if (package == nullptr || package->id == id_) continue;
      for (const host::Application& application : package->applications) {
        if (own.count(application.id) == 0) continue;
        throw Error("the application " + application.id + " belongs to the installed package " +
                    package->id + ": uninstall that first, or rename the application");
      }
    }
  }

  const InstallOptions& options_;
  bool is_update_;
  SourceTree source_;
  std::string id_;
};

}  // namespace

PackagePlan MakePlan(const InstallOptions& options, bool is_update) {
  return Derivation(options, is_update).Run();
}

}  // namespace vorna_pkg
