// SPDX-License-Identifier: MIT
// What the daemon reads from files, metadata and the CPU load.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "common/metadata_utils/app_metadata.h"
#include "common/vorna_utils/paths.h"
#include "script.h"
#include "server/globals/globals.h"
#include "server/vorna_interface/cpu_load.h"

namespace {

namespace fs = std::filesystem;
using server::RecoveryFileWatcher;
using Type = RecoveryFileWatcher::RecoveryFile::Type;

class Tree : public testing::Test {
 protected:
  Tree() {
    char name[] = "/tmp/vorna-unit-XXXXXX";
    root_ = mkdtemp(name);
  }
  ~Tree() override { fs::remove_all(root_); }
  fs::path Write(const std::string& path, const std::string& content = "MZ") {
    fs::create_directories((root_ / path).parent_path());
    std::ofstream(root_ / path) << content;
    return root_ / path;
  }

  Script script_;
  fs::path root_;
};

TEST_F(Tree, RecoveryFilesAreReadAsTheyStandAndBadOnesAreLoggedNotThrown) {
  const struct {
    const char* content;
    bool parses;
    Type type;
    const char* package_id;
  } table[] = {
      {"UPDATE_DONE\nx\norg.a\nmore", true, Type::kUpdate, "org.a"},
      {"UNINSTALL_UPDATE\n\norg.a", true, Type::kUpdate, "org.a"},
      {"x UNINSTALL\n\norg.a\r\n", true, Type::kUninstall, "org.a\r"},
      {"update\nx\n\n", true, Type::kOther, ""},
      {"UPDATE\norg.a\n", false, Type::kOther, ""},
      {"", false, Type::kOther, ""},
  };
  int bad = 0;
  for (const auto& row : table) {
    const auto file = RecoveryFileWatcher::try_create_recovery_file(Write("recovery", row.content));
    ASSERT_EQ(file.has_value(), row.parses) << row.content;
    EXPECT_EQ(script_.Count("Missing line(s)"), row.parses ? bad : ++bad) << row.content;
    if (!file) continue;
    EXPECT_EQ(std::pair(file->type, file->package_id),
              std::pair(row.type, std::string(row.package_id)));
  }
  EXPECT_FALSE(RecoveryFileWatcher::try_create_recovery_file(root_ / "absent"));
  EXPECT_FALSE(RecoveryFileWatcher::try_create_recovery_file(root_));
  EXPECT_EQ(script_.Count("Unable to open file for reading"), 1);
}

TEST_F(Tree, CompiledStateFollowsTheFilesOfThreeLevelsAndTheFirstAssembly) {
  const struct {
    std::vector<const char*> files;
    bool ready_to_run, compiled, has_assembly;
  } table[] = {
      {{}, false, false, false},
      {{"A.dll"}, false, false, true},
      {{"A.dll"}, true, true, true},
      {{"A.dll", "bin/.native_image/A.ni.dll"}, false, true, true},
      {{"bin/A.ni.dll"}, false, true, false},
      {{"a/b/A.dll"}, true, true, true},
      {{"a/b/c/A.dll", "a/b/c/A.ni.dll"}, true, false, false},
      {{"A.DLL", "A.NI.DLL", "dll", "A.dll.txt"}, true, false, false},
  };
  for (const auto& row : table) {
    fs::remove_all(root_);
    fs::create_directory(root_);
    for (const char* file : row.files) {
      Write(file);
      script_.Result("isReadyToRunImage", root_ / file, row.ready_to_run);
    }
    fs::create_directory_symlink("/usr", root_ / "linked.d");
    const std::string what = row.files.empty() ? "empty" : row.files.back();
    EXPECT_EQ(isPackageAOTCompiled(root_), row.compiled) << what;
    EXPECT_EQ(hasDllFile(root_), row.has_assembly) << what;
  }
  for (const char* file : {"1.dll", "2.dll", "3.dll"}) Write(file);
  const size_t before = script_.Calls("isReadyToRunImage").size();
  EXPECT_FALSE(isPackageAOTCompiled(root_));
  EXPECT_EQ(script_.Calls("isReadyToRunImage").size(), before + 2);
  EXPECT_FALSE(isPackageAOTCompiled(root_ / "absent"));
  EXPECT_FALSE(isStorageSufficient(root_ / "absent"));
}

TEST(Metadata, OnlyTheExactKeysAndValuesCount) {
  const struct {
    const char *key, *value;
    bool prefer, coba, dpc;
  } table[] = {
      {"http://kivor.org/metadata/prefer_dotnet_aot", "true", true, false, false},
      {"http://kivor.org/metadata/prefer_dotnet_aot", "1", false, false, false},
      {"http://kivor.org/metadata/prefer_dotnet_aot ", "true", false, false, false},
      {"http://kivor.org/kivor/metadata/support-fs-external-component", "true", false, true, false},
      {"http://kivor.org/kivor/metadata/support-view-plugin", "true", false, true, false},
      {"http://kivor.org/kivor/metadata/support-view-plugin-page", "true", false, true, false},
      {"http://kivor.org/kivor/metadata/support-bpi", "true", false, true, false},
      {"http://kivor.org/kivor/metadata/support-bpi", "True", false, false, false},
      {"http://kivor.org/tv/metadata/d.pc/type", "morlaxtv", false, false, true},
      {"http://kivor.org/tv/metadata/d.pc/type", "true", false, false, false},
      {"http://kivor.org/tv/metadata/d.pc/required", "true", false, false, false},
  };
  Script script;
  for (const auto& row : table) {
    AppMetadata metadata;
    EXPECT_EQ(metadata_func(row.key, row.value, &metadata), 0);
    metadata_func(row.key, "false", &metadata);
    EXPECT_EQ(std::tuple(metadata.prefer_dotnet_aot, metadata.is_coba, metadata.is_dpc_morlaxtv),
              std::tuple(row.prefer, row.coba, row.dpc))
        << row.key << "=" << row.value;
  }
}

struct FixedLoad : PerfMonitor {
  explicit FixedLoad(double value) : utilization(value) {}
  int32_t get_available_memory() const override { return 0; }
  double get_cpu_utilization() const override { return utilization; }
  double utilization;
};

TEST(CpuGate, ClosesOnlyAboveTheMaximumAndNeverWhileMonitoringIsOff) {
  Script script;
  for (const auto& [utilization, high] :
       {std::pair(50.0, false), {50.000001, true}, {NAN, false}, {1e9, true}}) {
    perf_monitor = std::make_unique<FixedLoad>(utilization);
    EXPECT_EQ(is_cpu_utilization_high(), high) << utilization;
    is_cpu_usage_monitoring_enabled = false;
    EXPECT_FALSE(is_cpu_utilization_high()) << utilization;
    is_cpu_usage_monitoring_enabled = true;
  }
  EXPECT_EQ(script.Count(" > "), 4);
}

}  // namespace
