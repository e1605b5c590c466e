// SPDX-License-Identifier: MIT
// The host library's small services: log lines, manifests that are traps, the watchdog.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <thread>

#include "platform/log.h"
#include "platform/package_info.h"
#include "platform/watchdog.h"
#include "world.h"

namespace {

class HostServices : public PlatformWorld {};

// What lands on standard error while something runs.
template <typename Call>
std::string StandardErrorOf(Call call) {
  testing::internal::CaptureStderr();
  call();
  return testing::internal::GetCapturedStderr();
}

TEST_F(HostServices, ALogLineIsOneLineWhateverIsInIt) {
  const std::string huge(140000, 'x');
  const std::string lines = StandardErrorOf([&] {
    log_print(LOG_ID_MAIN, LOG_PRIORITY_DEBUG, "TAG", "%s", "one\ntwo\t\x1b[31m\xff\u00fc\u0085");
    log_print(LOG_ID_MAIN, LOG_PRIORITY_INFO, "TAG", "%s", huge.c_str());
    log_print(LOG_ID_MAIN, LOG_PRIORITY_WARNING, "TAG", "%d", 3);
    log_print(LOG_ID_MAIN, LOG_PRIORITY_ERROR, nullptr, "end");
  });
  EXPECT_EQ(lines, "D/TAG: one\\ntwo\\t\\x1b[31m\\xff\u00fc\\xc2\\x85\nI/TAG: " + huge +
                       "\nW/TAG: 3\nE/: end\n");
}

TEST_F(HostServices, ALogWithoutAReaderNeitherEndsNorBlocksTheProgram) {
  int ends[2];
  const int saved = dup(STDERR_FILENO);
  ASSERT_EQ(pipe(ends), 0);
  dup2(ends[1], STDERR_FILENO);
  const std::string line(3000, 'x');
  for (int i = 0; i < 100; ++i) {  // more than a pipe holds
    log_print(LOG_ID_MAIN, LOG_PRIORITY_INFO, "TAG", "%s", line.c_str());
  }
  close(ends[0]);
  errno = EXDEV;
  log_print(LOG_ID_MAIN, LOG_PRIORITY_INFO, "TAG", "%s", line.c_str());
  close(STDERR_FILENO);
  log_print(LOG_ID_MAIN, LOG_PRIORITY_INFO, "TAG", "%s", line.c_str());
  EXPECT_EQ(errno, EXDEV) << "a caller logs before it looks at errno";
  dup2(saved, STDERR_FILENO);
  close(saved);
  close(ends[1]);
}

TEST_F(HostServices, AManifestThatIsATrapIsReportedOnceAndHangsNothing) {
  const fs::path root = AddPackage("trap");
  const std::string good = ReadFile(root / "package.ini");
  const fs::path manifest = root / "package.ini";
  WriteFile("/opt/usr/apps/elsewhere/package.ini", good);
  const std::vector<std::function<void()>> traps = {
      [&] { mkfifo(manifest.c_str(), 0644); },
      [&] { fs::create_directory(manifest); },
      [&] { fs::create_symlink("/opt/usr/apps/elsewhere/package.ini", manifest); },
      [&] {
        WriteFile(manifest, good);
        fs::resize_file(manifest, 1ULL << 40);
      },
      [&] { WriteFile(manifest, good + "[Metadata trap]\nkey=\\q\n"); },
  };
  for (const auto& set : traps) {
    fs::remove_all(manifest);
    set();
    package_info* package = nullptr;
    const std::string lines =
        StandardErrorOf([&] { EXPECT_NE(package_info_get("trap", &package), 0); });
    EXPECT_EQ(lines.rfind("E/VORNA_PLATFORM: /opt/usr/apps/trap/package.ini: ", 0), 0U) << lines;
    EXPECT_EQ(lines.find('\n'), lines.size() - 1) << lines;
  }
  fs::remove_all(root);
  fs::create_directory_symlink("/opt/usr/apps/elsewhere", root);
  package_info* package = nullptr;
  EXPECT_NE(package_info_get("trap", &package), 0);
}

TEST_F(HostServices, AnApplicationWithAnIdOfItsOwnIsFoundInTheManifestThatListsIt) {
  WriteFile("/usr/apps/suite/package.ini",
            "[Package]\nId=suite\n[Application editor]\nType=dotnet\n");
  AddPackage("broken");
  WriteFile("/opt/usr/apps/broken/package.ini", "");
  app_info* app = nullptr;
  ASSERT_EQ(app_info_get("editor", &app), 0);
  app_info_destroy(app);
}

TEST_F(HostServices, ASilentThreadEndsTheProcessAndIsNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        std::thread([] {
          pthread_setname_np(pthread_self(), "sleeper");
          tarrow_register_watchdog_service(1);
          pause();
        }).join();
      },
      testing::KilledBySignal(SIGABRT), "E/VORNA_PLATFORM: Thread .*sleeper");
  EXPECT_NE(tarrow_watchdog_notify(), 0);
  EXPECT_EQ(tarrow_register_watchdog_service(3600), 0);
  EXPECT_EQ(tarrow_watchdog_notify(), 0);
  EXPECT_EQ(tarrow_unregister_watchdog_service(), 0);
  EXPECT_NE(tarrow_unregister_watchdog_service(), 0);
}

}  // namespace
