// SPDX-License-Identifier: MIT
// What the platform interface promises, whoever keeps the promise: run once against the host
// library and once against the double of the other tests.
#include <sys/xattr.h>

#include <thread>
#include <vector>

#include "platform/log.h"
#include "platform/native_image.h"
#include "platform/package_info.h"
#include "platform/path.h"
#include "platform/smack.h"
#include "platform/watchdog.h"
#include "world.h"

namespace {

using Names = std::set<std::string>;

class Contract : public PlatformWorld {
 protected:
  static std::string RootOf(const std::string& id) {
    package_info* package = nullptr;
    const char* root = nullptr;
    if (package_info_get(id.c_str(), &package) != 0) return {};
    EXPECT_EQ(package_info_get_root_path(package, &root), 0);
    const std::string copy = root;
    EXPECT_EQ(package_info_destroy(package), 0);
    return copy;
  }

  static int Create(const std::string& id, uint32_t flags = NI_FLAG_PACKAGE_ROOT) {
    const NativeImageOption option = {flags, (flags & NI_FLAG_SINGLE_THREAD) != 0 ? "1" : nullptr};
    return createNativeImagesUnderPackageRoot(id.c_str(), &option);
  }
};

TEST_F(Contract, AManifestThatCannotBeUsedIsNoPackage) {
  const std::string good = "[Package]\nId=broken\nMainApplication=broken\n";
  AddPackage("good");
  fs::create_directories("/opt/usr/apps/empty");
  for (const auto& manifest : {std::string(), std::string("no key file"),
                               std::string("[Package]\nId=other\n"), std::string("\0\1\2", 3)}) {
    WriteFile("/opt/usr/apps/broken/package.ini", manifest);
    EXPECT_EQ(RootOf("broken"), "") << manifest;
  }
  WriteFile("/opt/usr/apps/broken/package.ini", good);
  EXPECT_EQ(RootOf("broken"), "/opt/usr/apps/broken");
  for (const std::string& id :
       {std::string(), std::string("."), std::string(".."), std::string("empty"),
        std::string("../apps/good"), std::string("good/"), std::string("/opt/usr/apps/good"),
        std::string("go od"), std::string("good\n"), std::string(140000, 'a'),
        std::string("\xff\xfe")}) {
    EXPECT_EQ(RootOf(id), "") << id.substr(0, 40);
  }
}

TEST_F(Contract, APackageOfTheReadWriteAreaHidesThePreloadedOne) {
  AddPackage("twice", "/usr/apps");
  EXPECT_EQ(RootOf("twice"), "/usr/apps/twice");
  AddPackage("twice");
  EXPECT_EQ(RootOf("twice"), std::string(platform_path_getenv(PLATFORM_PATH_RW_APPS)) + "/twice");
  EXPECT_EQ(platform_path_getenv(PLATFORM_PATH_RW_APPS + 1), nullptr);
}

TEST_F(Contract, AnApplicationIsFoundInThePackageThatItsIdExtends) {
  WriteFile("/opt/usr/apps/org.a/package.ini",
            "[Package]\nId=org.a\nMainApplication=org.a.ui\n"
            "[Application org.a.ui]\nType=dotnet-inhouse\n"
            "[Metadata org.a.ui]\nhttp://kivor.org/metadata/prefer_dotnet_aot=true\nb=2\nc=3\n"
            "[Application org.a.ui.service]\nType=service\n");
  AddPackage("org.a.ui");  // a neighbour whose id comes closer, and which does not list them
  WriteFile("/opt/usr/apps/org.a.ui/package.ini", "[Package]\nId=org.a.ui\nMainApplication=x\n");
  package_info* package = nullptr;
  const char* main_id = nullptr;
  ASSERT_EQ(package_info_get("org.a", &package), 0);
  ASSERT_EQ(package_info_get_main_app_id(package, &main_id), 0);
  app_info* app = nullptr;
  ASSERT_EQ(app_info_get(main_id, &app), 0);
  package_info_destroy(package);
  const char* type = nullptr;
  ASSERT_EQ(app_info_get_app_type(app, &type), 0);
  EXPECT_STREQ(type, "dotnet-inhouse");
  std::vector<std::string> pairs;
  const auto up_to_two = [](const char* key, const char* value, void* data) {
    auto* seen = static_cast<std::vector<std::string>*>(data);
    seen->push_back(std::string(key) + "=" + value);
    return seen->size() == 2 ? 1 : 0;
  };
  EXPECT_EQ(app_info_foreach_metadata(app, up_to_two, &pairs), 0);
  EXPECT_EQ(pairs,
            (std::vector<std::string>{"http://kivor.org/metadata/prefer_dotnet_aot=true", "b=2"}));
  app_info_destroy(app);
  ASSERT_EQ(app_info_get("org.a.ui.service", &app), 0);
  app_info_destroy(app);
  EXPECT_NE(app_info_get("org.a.other", &app), 0);
  EXPECT_NE(app_info_get("org.aui", &app), 0);
}

TEST_F(Contract, ACompileMakesTheImagesOfEveryCandidateAndNothingElse) {
  const fs::path root = AddApplication("candidates");
  PutAssembly("Greeter.dll", root / "bin/plug in/Plug,In.dll");
  PutAssembly("de/Greeter.resources.dll", root / "bin/de/Greeter.resources.dll");
  fs::copy_file(FrameworkImage(), root / "bin/Ready.dll");
  WriteFile(root / "bin/Text.dll", "no assembly");
  PutAssembly("Greeter.dll", root / "elsewhere/Outside.dll");
  PutAssembly("Greeter.dll", "/opt/usr/apps/other/Linked.dll");
  fs::create_directory_symlink("/opt/usr/apps/other", root / "bin/linked");
  fs::create_symlink("Greeter.dll", root / "bin/Alias.dll");
  ASSERT_EQ(initNativeImageCommon(), 0);
  ASSERT_EQ(Create("candidates"), 0);
  EXPECT_EQ(finalizeNativeImageCommon(), 0);
  EXPECT_EQ(Images("/opt/usr/apps/candidates"),
            (Names{"bin/.native_image/App.ni.dll", "bin/.native_image/Greeter.ni.dll",
                   "bin/plug in/.native_image/Plug,In.ni.dll"}));
  EXPECT_EQ(Images("/opt/usr/apps/other"), Names{});
}

TEST_F(Contract, NothingToCompileIsNoFailureAndAnUnknownPackageIs) {
  AddPackage("empty");
  fs::remove(AddPackage("no-bin") / "bin");
  EXPECT_EQ(Create("empty"), 0);
  EXPECT_EQ(Create("no-bin", NI_FLAG_PACKAGE_ROOT | NI_FLAG_SINGLE_THREAD), 0);
  EXPECT_LT(Create("unknown"), 0);
  EXPECT_LT(createNativeImagesUnderPackageRoot("empty", nullptr), 0);
  EXPECT_LT(createNativeImagesUnderPackageRoot(nullptr, nullptr), 0);
}

TEST_F(Contract, DirectoriesAreCompiledWithoutTheRestOfThePackage) {
  const fs::path root = AddApplication("plugins");
  PutAssembly("Greeter.dll", root / "shared/res/First.dll");
  PutAssembly("Greeter.dll", root / "shared/res/d.pc/Second.dll");
  const NativeImageOption option = {NI_FLAG_SINGLE_THREAD | NI_FLAG_INPUT_BUBBLE, "1"};
  const std::string list = root.string() + "//shared/res:" + root.string() + "/shared/res/d.pc";
  ASSERT_EQ(createNativeImagesUnderDirs(list.c_str(), &option), 0);
  EXPECT_EQ(Images(root), (Names{"shared/res/.native_image/First.ni.dll",
                                 "shared/res/d.pc/.native_image/Second.ni.dll"}));
}

TEST_F(Contract, RemovalTakesEveryImageAndFollowsNoLink) {
  const fs::path root = AddApplication("removed");
  PutAssembly("Greeter.dll", root / "bin/sub/Sub.dll");
  WriteFile("/opt/usr/apps/other/.native_image/Kept.ni.dll", "kept");
  fs::create_directory_symlink("/opt/usr/apps/other", root / "linked");
  ASSERT_EQ(Create("removed"), 0);
  ASSERT_EQ(Images(root).size(), 3U);
  EXPECT_EQ(removeNativeImagesUnderPackageRoot("removed"), 0);
  EXPECT_EQ(removeNativeImagesUnderPackageRoot("removed"), 0);
  EXPECT_EQ(Images(root), Names{});
  EXPECT_TRUE(fs::exists(root / "bin/Greeter.dll"));
  EXPECT_EQ(ReadFile("/opt/usr/apps/other/.native_image/Kept.ni.dll"), "kept");
  EXPECT_LT(removeNativeImagesUnderPackageRoot("unknown"), 0);
}

TEST_F(Contract, OnlyAWholeReadyToRunFileIsOne) {
  const fs::path files = "/opt/usr/apps/files";
  const std::string image = ReadFile(FrameworkImage());
  WriteFile(files / "whole.dll", image);
  WriteFile(files / "truncated.dll", image.substr(0, image.size() / 2));
  WriteFile(files / "header.dll", image.substr(0, 64));
  WriteFile(files / "empty.dll", "");
  PutAssembly("Greeter.dll", files / "il.dll");
  fs::copy_file("/bin/true", files / "elf.dll");
  EXPECT_TRUE(isReadyToRunImage((files / "whole.dll").c_str()));
  for (const char* name :
       {"truncated.dll", "header.dll", "empty.dll", "il.dll", "elf.dll", "missing.dll", "."}) {
    EXPECT_FALSE(isReadyToRunImage((files / name).c_str())) << name;
  }
  EXPECT_FALSE(isReadyToRunImage(nullptr));
}

TEST_F(Contract, ALabelIsThatOfTheLinkItself) {
  WriteFile("/opt/usr/apps/labelled", "");
  fs::create_symlink("labelled", "/opt/usr/apps/link");
  if (setxattr("/opt/usr/apps/labelled", "security.SMACK64", "System", 6, 0) != 0) {
    GTEST_SKIP() << "labels cannot be set here: " << strerror(errno);
  }
  char* label = nullptr;
  ASSERT_EQ(smack_getlabel("/opt/usr/apps/labelled", &label, SMACK_LABEL_ACCESS), 0);
  EXPECT_STREQ(label, "System");
  free(label);
  EXPECT_NE(smack_getlabel("/opt/usr/apps/link", &label, SMACK_LABEL_ACCESS), 0);
  EXPECT_NE(smack_getlabel("/opt/usr/apps/missing", &label, SMACK_LABEL_ACCESS), 0);
}

TEST_F(Contract, CallersOnManyThreadsDoNotDisturbEachOther) {
  const fs::path root = AddApplication("shared");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      EXPECT_EQ(initNativeImageCommon(), 0);
      EXPECT_EQ(tarrow_register_watchdog_service(3600), 0);
      const int created = Create("shared");
      EXPECT_EQ(created, 0);
      if (i % 2 == 0) {
        EXPECT_EQ(removeNativeImagesUnderPackageRoot("shared"), 0);
      }
      EXPECT_EQ(RootOf("shared"), root);
      log_print(LOG_ID_MAIN, LOG_PRIORITY_DEBUG, "CONTRACT", "%s", "one of many");
      EXPECT_EQ(tarrow_unregister_watchdog_service(), 0);
      EXPECT_EQ(finalizeNativeImageCommon(), 0);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const size_t images = Images(root).size();
  EXPECT_TRUE(images == 0 || images == 2) << images;
}

}  // namespace
