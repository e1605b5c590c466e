// SPDX-License-Identifier: MIT
#include "listing.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <variant>

#include "base/files.h"
#include "base/text.h"
#include "error.h"
#include "image_check.h"
#include "install_record.h"
#include "installed_packages.h"
#include "messages.h"

namespace vorna_pkg {
namespace {

using nlohmann::ordered_json;

// Values are strangers': what is no UTF-8 is replaced, so that the output stays JSON.
void Print(const ordered_json& value) {
  printf("%s\n", value.dump(2, ' ', false, ordered_json::error_handler_t::replace).c_str());
}

const char* AreaOf(const host::Package& package) {
  return IsPreloaded(package) ? "preloaded" : "read-write";
}

std::string TypeOf(const host::Package& package) {
  const host::Application* main = MainApplicationOf(package);
  return main == nullptr ? "" : main->type;
}

ordered_json Summary(const InstalledPackage& installed) {
  ordered_json value = {{"id", installed.id}};
  if (const auto* failure = std::get_if<host::LookupFailure>(&installed.package)) {
    value["error"] = failure->cause;
    return value;
  }
  const auto& package = std::get<host::Package>(installed.package);
  value["area"] = AreaOf(package);
  value["type"] = TypeOf(package);
  value["asks_for_compilation"] = AsksForCompile(package);
  return value;
}

std::string Line(const InstalledPackage& installed, size_t width) {
  std::string id = installed.id;
  id.resize(width, ' ');
  if (const auto* failure = std::get_if<host::LookupFailure>(&installed.package)) {
    return id + "  broken: " + failure->cause;
  }
  const auto& package = std::get<host::Package>(installed.package);
  return id + "  " + AreaOf(package) + ", " + TypeOf(package) +
         (AsksForCompile(package) ? ", asks for compilation" : "");
}

struct Size {
  size_t files = 0;
  uint64_t bytes = 0;
};

// From what was recorded at the installation; nothing for packages that came some other way.
std::optional<Size> InstalledSizeOf(const host::Package& package) {
  std::string text;
  const host::UniqueFd root = OpenPackage(package.id);
  if (host::ReadFileAt(root.get(), kInstallRecordName, kLargestInstallRecord, &text) != 0) {
    return std::nullopt;
  }
  const auto record = InstallRecord::Parse(text);
  if (!record) return std::nullopt;
  Size size;
  for (const auto& [path, file] : record->files) {
    ++size.files;
    size.bytes += file.size;
  }
  return size;
}

std::map<std::string, size_t> ImagesByState(const host::Package& package) {
  std::map<std::string, size_t> counts;
  for (const ImageFinding& finding : CheckImages(package, Depth::kQuick)) {
    ++counts[NameOf(finding.state)];
  }
  return counts;
}

ordered_json Details(const host::Package& package) {
  ordered_json value = {{"id", package.id},
                        {"root", package.root},
                        {"area", AreaOf(package)},
                        {"asks_for_compilation", AsksForCompile(package)},
                        {"main_application", package.main_application}};
  value["applications"] = ordered_json::array();
  for (const host::Application& application : package.applications) {
    ordered_json metadata = ordered_json::object();
    for (const auto& [key, text] : application.metadata) metadata[key] = text;
    value["applications"].push_back({{"id", application.id},
                                     {"type", application.type},
                                     {"executable", application.executable},
                                     {"metadata", metadata}});
  }
  if (const auto size = InstalledSizeOf(package)) {
    value["files"] = size->files;
    value["bytes"] = size->bytes;
  }
  value["images"] = ImagesByState(package);
  return value;
}

void SayDetails(const host::Package& package) {
  Say("package      " + package.id);
  Say("directory    " + package.root + " (" + AreaOf(package) + ")");
  for (const host::Application& application : package.applications) {
    const bool is_main = application.id == package.main_application;
    Say("application  " + application.id + (is_main ? " (main)" : ""));
    Say("  type        " + application.type);
    Say("  executable  " + application.executable);
    for (const auto& [key, value] : application.metadata) {
      Say(host::Format("  metadata    %s=%s", key.c_str(), value.c_str()));
    }
  }
  if (const auto size = InstalledSizeOf(package)) {
    Say("files        " + std::to_string(size->files) + ", " + SizeText(size->bytes));
  }
  std::string images;
  for (const auto& [state, count] : ImagesByState(package)) {
    images += (images.empty() ? "" : ", ") + std::to_string(count) + " " + state;
  }
  Say("images       " + (images.empty() ? "no assembly wants one" : images));
}

}  // namespace

void ListPackages(bool as_json) {
  const std::vector<InstalledPackage> packages = FindInstalledPackages();
  ordered_json values = ordered_json::array();
  size_t width = 0;
  for (const InstalledPackage& package : packages) {
    values.push_back(Summary(package));
    width = std::max(width, package.id.size());
  }
  if (as_json) {
    Print(values);
    return;
  }
  for (const InstalledPackage& package : packages) Say(Line(package, width));
}

void ShowPackage(const std::string& id, bool as_json) {
  const host::Package package = GetInstalledPackage(id);
  if (as_json) {
    Print(Details(package));
  } else {
    SayDetails(package);
  }
}

}  // namespace vorna_pkg
