// SPDX-License-Identifier: MIT
#include "world.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

void WriteFile(const fs::path& path, const std::string& content) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void PutAssembly(const std::string& name, const fs::path& path) {
  WriteFile(path, ReadFile(fs::path(TEST_ASSEMBLIES) / name));
}

fs::path FrameworkImage() {
  for (const auto& entry : fs::recursive_directory_iterator(FRAMEWORK_ASSEMBLIES)) {
    if (entry.path().filename() == "System.Private.Uri.dll") return entry.path();
  }
  return {};
}

void PlatformWorld::SetUp() {
  const fs::path installed = "/usr/share/dotnet.kivor/netcoreapp/crossgen2";
  if (!fs::exists(installed)) {
    const char* cache = getenv("XDG_CACHE_HOME");
    const char* home = getenv("HOME");
    const fs::path compiler =
        (cache != nullptr ? fs::path(cache) : fs::path(home != nullptr ? home : "/") / ".cache") /
        "vorna/crossgen2/current/tools";
    fs::remove(installed);
    fs::create_directories(installed.parent_path());
    fs::create_directory_symlink(compiler, installed);
  }
  if (!fs::exists(installed / "crossgen2")) {
    GTEST_SKIP() << "no compiler at " << installed << "; scripts/setup fetches it";
  }
  for (const char* area : {"/opt/usr/apps", "/usr/apps"}) {
    for (const auto& entry : fs::directory_iterator(area)) fs::remove_all(entry.path());
  }
}

fs::path PlatformWorld::AddPackage(const std::string& id, const fs::path& area) {
  WriteFile(area / id / "package.ini", "[Package]\nId=" + id + "\nMainApplication=" + id +
                                           "\n\n[Application " + id +
                                           "]\nType=dotnet\nExecutable=bin/App.dll\n");
  fs::create_directories(area / id / "bin");
  return area / id;
}

fs::path PlatformWorld::AddApplication(const std::string& id) {
  const fs::path root = AddPackage(id);
  PutAssembly("App.dll", root / "bin/App.dll");
  PutAssembly("Greeter.dll", root / "bin/Greeter.dll");
  fs::copy_file(TEST_RUNTIME_CONFIG, root / "bin/App.runtimeconfig.json");
  return root;
}

std::set<std::string> PlatformWorld::Images(const fs::path& root) {
  std::set<std::string> images;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string path = fs::relative(entry.path(), root);
    const bool is_image = path.size() > 7 && path.compare(path.size() - 7, 7, ".ni.dll") == 0;
    if (is_image || path.find("staging") != std::string::npos) images.insert(path);
  }
  return images;
}
