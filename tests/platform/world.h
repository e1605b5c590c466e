// SPDX-License-Identifier: MIT
// What a test of the platform finds in its private world: the compiler where it belongs, empty
// application areas, and packages made of a few lines and files.
#ifndef TESTS_PLATFORM_WORLD_H
#define TESTS_PLATFORM_WORLD_H

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

namespace fs = std::filesystem;

void WriteFile(const fs::path& path, const std::string& content);
std::string ReadFile(const fs::path& path);

// A test assembly by its name in the build, "Greeter.dll" say, put where it is asked for.
void PutAssembly(const std::string& name, const fs::path& path);

// A ReadyToRun file of the framework.
fs::path FrameworkImage();

class PlatformWorld : public testing::Test {
 protected:
  void SetUp() override;

  // Writes a manifest with one application of the package's own id; returns the package's root.
  fs::path AddPackage(const std::string& id, const fs::path& area = "/opt/usr/apps");
  // The same with App.dll, its configuration and Greeter.dll in bin.
  fs::path AddApplication(const std::string& id);

  // Native images and leftovers below a directory, relative to it.
  static std::set<std::string> Images(const fs::path& root);
};

#endif
