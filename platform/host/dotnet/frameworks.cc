// SPDX-License-Identifier: MIT
#include "dotnet/frameworks.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "base/failure.h"
#include "base/files.h"
#include "dotnet/hostfxr.h"

namespace host {
namespace {

using nlohmann::json;

[[noreturn]] void Refuse(const std::string& cause) {
  throw Failure(NI_ERROR_NO_FRAMEWORK, "runtime configuration: " + cause);
}

// Names become parts of paths in which the runtime looks.
std::string CheckedName(const json& value) {
  std::string name = value.get<std::string>();
  const bool harmless = !name.empty() && name[0] != '.' && name.size() < 256 &&
                        name.find_first_not_of(
                            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                            "0123456789.-+_") == std::string::npos;
  if (!harmless) Refuse("\"" + name + "\" names no framework or version");
  return name;
}

json CheckedReference(const json& reference) {
  json checked = {{"name", CheckedName(reference.at("name"))},
                  {"version", CheckedName(reference.at("version"))}};
  for (const char* policy : {"rollForward", "applyPatches", "rollForwardOnNoCandidateFx"}) {
    if (const auto found = reference.find(policy);
        found != reference.end() && found->is_primitive()) {
      checked[policy] = *found;
    }
  }
  return checked;
}

// What says which frameworks are wanted, and no more: probing paths and properties of a stranger's
// file stay outside this process.
json CheckedOptions(const json& options) {
  json checked = json::object();
  if (const auto framework = options.find("framework"); framework != options.end()) {
    checked["framework"] = CheckedReference(*framework);
  }
  if (const auto frameworks = options.find("frameworks"); frameworks != options.end()) {
    checked["frameworks"] = json::array();
    for (const json& reference : *frameworks) {
      checked["frameworks"].push_back(CheckedReference(reference));
    }
  }
  if (checked.empty()) Refuse("it names no shared framework");
  for (const char* policy : {"rollForward", "applyPatches", "rollForwardOnNoCandidateFx"}) {
    if (const auto found = options.find(policy); found != options.end() && found->is_primitive()) {
      checked[policy] = *found;
    }
  }
  return checked;
}

json CheckedConfig(const std::string& runtime_config) {
  try {
    const json config = json::parse(runtime_config, nullptr, true, true);
    return {{"runtimeOptions", CheckedOptions(config.at("runtimeOptions"))}};
  } catch (const json::exception& error) {
    Refuse(error.what());
  }
}

// A file that only this process writes, in a directory of its own: the runtime also reads a
// *.runtimeconfig.dev.json beside it, were there one.
class PrivateConfigFile {
 public:
  explicit PrivateConfigFile(const std::string& content) {
    char directory[] = "/tmp/vorna-XXXXXX";
    if (mkdtemp(directory) == nullptr) throw SystemFailure(errno, directory);
    directory_ = directory;
    path_ = directory_ + "/app.runtimeconfig.json";
    const UniqueFd file(
        open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    const int error = file ? WriteAll(file.get(), content) : errno;
    if (error != 0) {
      Remove();
      throw SystemFailure(error, path_);
    }
  }
  ~PrivateConfigFile() { Remove(); }
  PrivateConfigFile(const PrivateConfigFile&) = delete;
  PrivateConfigFile& operator=(const PrivateConfigFile&) = delete;

  const std::string& path() const { return path_; }

 private:
  void Remove() {
    unlink(path_.c_str());
    rmdir(directory_.c_str());
  }

  std::string directory_;
  std::string path_;
};

}  // namespace

int MajorOf(const std::string& version) {
  return atoi(version.c_str());
}

int FrameworkSet::CoreMajor() const {
  const auto core = versions.find(kCoreFramework);
  return core == versions.end() ? 0 : MajorOf(core->second);
}

FrameworkSet ResolveFrameworks(const std::string& runtime_config) {
  const PrivateConfigFile file(CheckedConfig(runtime_config).dump());
  try {
    const HostfxrContext context = HostfxrContext::ForRuntimeConfig(file.path());
    return FrameworksOf(SplitPathList(context.Property("TRUSTED_PLATFORM_ASSEMBLIES")));
  } catch (const HostfxrError& error) {
    throw Failure(NI_ERROR_NO_FRAMEWORK, error.what());
  }
}

std::string RuntimeConfigForMajor(int major) {
  return json({{"runtimeOptions",
                {{"framework",
                  {{"name", kCoreFramework}, {"version", std::to_string(major) + ".0.0"}}}}}})
      .dump();
}

FrameworkSet FrameworksOf(const std::vector<std::string>& trusted_assemblies) {
  FrameworkSet set;
  for (const std::string& path : trusted_assemblies) {
    const size_t file = path.rfind('/');
    if (file == std::string::npos || file == 0) continue;
    const size_t version = path.rfind('/', file - 1);
    if (version == std::string::npos || version == 0) continue;
    const size_t name = path.rfind('/', version - 1);
    constexpr std::string_view kShared = "/shared";
    if (name == std::string::npos || !EndsWith(std::string_view(path).substr(0, name), kShared)) {
      continue;
    }
    set.versions[path.substr(name + 1, version - name - 1)] =
        path.substr(version + 1, file - version - 1);
    set.assemblies.push_back(path);
  }
  return set;
}

}  // namespace host
