// SPDX-License-Identifier: MIT
// vorna-run with real applications and images: it must never run old code and never fail because of
// an image.
#include <sys/wait.h>

#include <cstdio>
#include <functional>

#include "platform/native_image.h"
#include "world.h"

namespace {

// The runtime and the sanitizers both want the signals and the address space of the process.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kRuntimeStarts = false;
#else
constexpr bool kRuntimeStarts = true;
#endif

struct Outcome {
  int status;
  std::string output;
};

Outcome Launch(const std::string& arguments) {
  const std::string command = std::string(VORNA_RUN) + " " + arguments + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  Outcome outcome{0, {}};
  char buffer[4096];
  while (const size_t count = fread(buffer, 1, sizeof buffer, pipe)) {
    outcome.output.append(buffer, count);
  }
  outcome.status = WEXITSTATUS(pclose(pipe));
  return outcome;
}

class Launcher : public PlatformWorld {
 protected:
  void SetUp() override {
    if (!kRuntimeStarts) GTEST_SKIP() << "the runtime does not start under a sanitizer";
    PlatformWorld::SetUp();
  }

  fs::path AddCompiled(const std::string& id, uint32_t flags = NI_FLAG_PACKAGE_ROOT) {
    const fs::path root = AddApplication(id);
    const NativeImageOption option = {flags, nullptr};
    EXPECT_EQ(createNativeImagesUnderPackageRoot(id.c_str(), &option), 0);
    return root;
  }
};

TEST_F(Launcher, ArgumentsAndExitStatusAreTheApplicationsOwn) {
  AddCompiled("app");
  const Outcome outcome = Launch("app --explain -- 'a b' --help");
  EXPECT_EQ(outcome.status, 4);
  EXPECT_EQ(outcome.output, "greetings, --explain|--|a b|--help\n");
}

TEST_F(Launcher, AnImageThatIsNotWholeOrNotOfThisAssemblyIsNotUsed) {
  struct Case {
    const char* id;
    std::function<void(const fs::path& bin)> change;
    const char* greeting;
    int images;
  };
  const auto image = [](const fs::path& bin) { return bin / ".native_image/Greeter.ni.dll"; };
  const auto manifest = [](const fs::path& bin) { return bin / ".native_image/manifest.json"; };
  const std::vector<Case> cases = {
      {"fresh", [](const fs::path&) {}, "greetings, \n", 2},
      {"updated",
       [](const fs::path& bin) { PutAssembly("updated/Greeter.dll", bin / "Greeter.dll"); },
       "welcome, \n", 1},
      {"disguised",  // another assembly of the same size and time
       [](const fs::path& bin) {
         const auto time = fs::last_write_time(bin / "Greeter.dll");
         const auto size = fs::file_size(bin / "Greeter.dll");
         PutAssembly("updated/Greeter.dll", bin / "Greeter.dll");
         fs::resize_file(bin / "Greeter.dll", size);
         fs::last_write_time(bin / "Greeter.dll", time);
       },
       "welcome, \n", 1},
      {"copied",  // as by a backup: other inodes, the same assemblies
       [](const fs::path& bin) {
         const auto time = fs::last_write_time(bin / "Greeter.dll");
         fs::copy_file(bin / "Greeter.dll", bin / "copy");
         fs::rename(bin / "copy", bin / "Greeter.dll");
         fs::last_write_time(bin / "Greeter.dll", time);
       },
       "greetings, \n", 2},
      {"truncated", [&](const fs::path& bin) { fs::resize_file(image(bin), 100); }, "greetings, \n",
       1},
      {"missing", [&](const fs::path& bin) { fs::remove(image(bin)); }, "greetings, \n", 1},
      {"no-manifest", [&](const fs::path& bin) { fs::remove(manifest(bin)); }, "greetings, \n", 0},
      {"odd-manifest", [&](const fs::path& bin) { WriteFile(manifest(bin), "{\"format\":1}"); },
       "greetings, \n", 0},
      {"other-framework",
       [&](const fs::path& bin) {
         std::string text = ReadFile(manifest(bin));
         text.replace(text.find("\"10.", text.find("frameworks")), 4, "\"9.");
         WriteFile(manifest(bin), text);
       },
       "greetings, \n", 0},
  };
  for (const Case& one : cases) {
    one.change(AddCompiled(one.id) / "bin");
    const std::string output = Launch(std::string("--explain ") + one.id).output;
    int images = 0;
    for (size_t at = 0; (at = output.find(": native image\n", at)) != std::string::npos; ++at) {
      ++images;
    }
    EXPECT_EQ(images, one.images) << one.id << "\n" << output;
    EXPECT_EQ(output.substr(output.rfind('\n', output.size() - 2) + 1), one.greeting) << output;
  }
}

TEST_F(Launcher, OneReplacedMemberEndsTheUseOfItsBubble) {
  const fs::path root = AddCompiled("bubble", NI_FLAG_PACKAGE_ROOT | NI_FLAG_INPUT_BUBBLE);
  EXPECT_EQ(Launch("--explain bubble").output.find("assembly ("), std::string::npos);
  PutAssembly("updated/Greeter.dll", root / "bin/Greeter.dll");
  const std::string output = Launch("--explain bubble").output;
  EXPECT_EQ(output.find("native image\n"), std::string::npos) << output;
  EXPECT_NE(output.find("welcome, "), std::string::npos) << output;
}

TEST_F(Launcher, WhatCannotBeStartedIsToldInOneLine) {
  AddPackage("hollow");
  WriteFile(AddPackage("escape") / "package.ini",
            "[Package]\nId=escape\nMainApplication=escape\n"
            "[Application escape]\nExecutable=../hollow/bin/App.dll\n");
  for (const char* id : {"unknown", "hollow", "escape"}) {
    const Outcome outcome = Launch(id);
    EXPECT_EQ(outcome.status, 126) << id;
    EXPECT_EQ(outcome.output.find('\n'), outcome.output.size() - 1) << outcome.output;
  }
}

}  // namespace
