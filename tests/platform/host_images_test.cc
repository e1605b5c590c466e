// SPDX-License-Identifier: MIT
// The host library's native images, made by the real compiler: odd assemblies, deaths at the wrong
// moment, full disks and hostile trees.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <future>
#include <sstream>
#include <string>
#include <vector>

#include "platform/native_image.h"
#include "world.h"

namespace {

using Names = std::set<std::string>;

constexpr char kStaging[] = "/opt/usr/apps/.native_image.staging";

int Create(const std::string& id, uint32_t flags = NI_FLAG_PACKAGE_ROOT) {
  const NativeImageOption option = {flags, nullptr};
  return createNativeImagesUnderPackageRoot(id.c_str(), &option);
}

// Whole headers, and signatures of nonsense: only the compiler finds out. Large, to be its first.
std::string DamagedAssembly() {
  std::string bytes = ReadFile(fs::path(TEST_ASSEMBLIES) / "Greeter.dll");
  uint32_t heap[2];
  memcpy(heap, bytes.data() + bytes.find("#Blob") - sizeof heap, sizeof heap);
  bytes.replace(bytes.find("BSJB") + heap[0] + 1, heap[1] - 1, heap[1] - 1, '\xa5');
  return bytes + std::string(8192, '\0');
}

// Stops a compile of one assembly at a time in its first, the largest one: its compiler opens the
// debug symbols beside it and finds a FIFO that nobody writes to.
class Gate {
 public:
  explicit Gate(const fs::path& root) : assembly_(root / "bin/Gate.dll") {
    PutAssembly("Gate.dll", assembly_);
    PutAssembly("Gate.pdb", assembly_.string() + ".symbols");
    EXPECT_EQ(mkfifo((root / "bin/Gate.pdb").c_str(), 0644), 0);
  }

  // Returns when there is a compiler that cannot pass.
  pid_t AwaitCompiler() {
    while ((compiler_ = Find()) < 0) std::this_thread::yield();
    return compiler_;
  }
  void AwaitDeath() const {
    const int process = static_cast<int>(syscall(SYS_pidfd_open, compiler_, 0));
    struct pollfd event = {process, POLLIN, 0};
    if (process >= 0) poll(&event, 1, -1);
    close(process);
  }
  // Puts the symbols there. A process that is stopped in an open goes on by trying it again.
  void Open() {
    std::error_code gone_with_its_package;
    fs::rename(assembly_.string() + ".symbols", fs::path(assembly_).replace_extension(".pdb"),
               gone_with_its_package);
    kill(compiler_, SIGSTOP);
    const std::string status = "/proc/" + std::to_string(compiler_) + "/status";
    while (ReadFile(status).find("State:\tT") == std::string::npos) std::this_thread::yield();
    kill(compiler_, SIGCONT);
  }

 private:
  pid_t Find() const {
    for (const auto& entry : fs::directory_iterator("/proc")) {
      const std::string command_line = ReadFile(entry.path() / "cmdline");
      if (command_line.find(assembly_.string() + '\0') != std::string::npos) {
        return std::stoi(entry.path().filename());
      }
    }
    return -1;
  }

  const fs::path assembly_;
  pid_t compiler_ = -1;
};

class HostImages : public PlatformWorld {
 protected:
  static std::future<int> CreateBeside(const std::string& id, uint32_t flags = 0) {
    return std::async(std::launch::async, [=] {
      return Create(id, flags | NI_FLAG_PACKAGE_ROOT | NI_FLAG_SINGLE_THREAD);
    });
  }

  static Names Staged() {
    Names names;
    for (const auto& entry : fs::directory_iterator(kStaging)) {
      if (entry.path().filename() != "lock") names.insert(entry.path().filename());
    }
    return names;
  }
};

TEST_F(HostImages, OddAssembliesAreLeftOutAndDoNotHarmTheOthers) {
  const fs::path root = AddApplication("odd");
  const std::string greeter = ReadFile(root / "bin/Greeter.dll");
  WriteFile(root / "bin/Damaged.dll", DamagedAssembly());
  WriteFile(root / "bin/Truncated.dll", greeter.substr(0, greeter.size() - 200));
  WriteFile(root / "bin/Random.dll", std::string(4096, '\xee'));
  WriteFile(root / "bin/Empty.dll", "");
  WriteFile(root / "bin/CAPITALS.DLL", greeter);
  ASSERT_EQ(mkfifo((root / "bin/Fifo.dll").c_str(), 0644), 0);
  Names expected = {"bin/.native_image/App.ni.dll", "bin/.native_image/Greeter.ni.dll"};
  for (const std::string& name : {std::string("b lank"), std::string("com,ma;"), std::string("@at"),
                                  std::string("-r"), std::string("#hash"), std::string("grün"),
                                  std::string("\"quoted'"), std::string(240, 'l')}) {
    WriteFile(root / "bin" / (name + ".dll"), greeter);
    expected.insert("bin/.native_image/" + name + ".ni.dll");
  }
  for (const std::string& name : {std::string("st*r"), std::string("qu?stion"), std::string("\xff"),
                                  std::string("new\nline"), std::string(251, 'l')}) {
    WriteFile(root / "bin" / (name + ".dll"), greeter);
  }
  expected.insert("bin/.native_image/new\nline.ni.dll");
  ASSERT_EQ(Create("odd"), 0);
  EXPECT_EQ(Images(root), expected);
  EXPECT_EQ(Staged(), Names{});
}

TEST_F(HostImages, APackageOfBrokenAssembliesAloneFailsAndKeepsNothing) {
  const fs::path root = AddPackage("broken");
  std::string text = ReadFile(fs::path(TEST_ASSEMBLIES) / "Greeter.dll");
  text.replace(text.find("BSJB"), 4, "JSBB");
  WriteFile(root / "bin/Broken.dll", text);
  EXPECT_EQ(Create("broken"), NI_ERROR_ALL_FAILED);
  EXPECT_EQ(Images(root), Names{});
}

TEST_F(HostImages, AKilledCompilerIsToldFromAFailureAndLeavesTheOldImages) {
  for (const int signal : {SIGKILL, SIGTERM, SIGINT}) {
    const fs::path root = AddApplication("killed" + std::to_string(signal));
    const std::string id = root.filename();
    ASSERT_EQ(Create(id), 0);
    const std::string old = ReadFile(root / "bin/.native_image/manifest.json");
    Gate gate(root);
    auto result = CreateBeside(id);
    const pid_t compiler = gate.AwaitCompiler();
    EXPECT_EQ(Images(root).size(), 2U) << "something staged looks compiled";
    kill(compiler, signal);
    EXPECT_EQ(result.get(), NI_ERROR_COMPILER_KILLED) << signal;
    EXPECT_EQ(ReadFile(root / "bin/.native_image/manifest.json"), old);
    EXPECT_EQ(Staged(), Names{});
  }
}

TEST_F(HostImages, AnAssemblyReplacedWhileItCompilesGetsNoImageOfTheOldBytes) {
  struct Case {
    const char* id;
    std::function<void(const fs::path& bin)> change;
  };
  const std::vector<Case> cases = {
      {"renamed",
       [](const fs::path& bin) {
         PutAssembly("updated/Greeter.dll", bin / "new");
         fs::rename(bin / "new", bin / "Greeter.dll");
       }},
      {"rewritten", [](const fs::path& bin) { PutAssembly("Greeter.dll", bin / "Greeter.dll"); }},
      {"linked",
       [](const fs::path& bin) {
         fs::rename(bin / "Greeter.dll", bin / "moved");
         fs::create_symlink("moved", bin / "Greeter.dll");
       }},
      {"gone", [](const fs::path& bin) { fs::remove_all(bin.parent_path()); }},
  };
  for (const Case& one : cases) {
    const fs::path root = AddApplication(one.id);
    Gate gate(root);
    auto result = CreateBeside(one.id);
    gate.AwaitCompiler();
    one.change(root / "bin");
    gate.Open();
    EXPECT_EQ(result.get(), NI_ERROR_INPUT_CHANGED) << one.id;
    EXPECT_FALSE(fs::exists(root / "bin/.native_image")) << one.id;
  }
}

TEST_F(HostImages, CompilersDieWithTheirDaemonAndTheNextOneSweepsWhatTheyLeft) {
  Gate dead(AddApplication("dead"));
  const pid_t daemon = fork();
  if (daemon == 0) _exit(Create("dead", NI_FLAG_PACKAGE_ROOT | NI_FLAG_SINGLE_THREAD));
  dead.AwaitCompiler();
  Gate alive(AddApplication("alive"));
  auto result = CreateBeside("alive");
  alive.AwaitCompiler();
  kill(daemon, SIGKILL);
  dead.AwaitDeath();
  waitpid(daemon, nullptr, 0);
  EXPECT_EQ(Staged().size(), 2U);
  ASSERT_EQ(initNativeImageCommon(), 0);
  finalizeNativeImageCommon();
  EXPECT_EQ(Staged().size(), 1U) << "only what is dead may be swept, and all of that";
  alive.Open();
  EXPECT_EQ(result.get(), 0);
  EXPECT_EQ(Staged(), Names{});
}

TEST_F(HostImages, AFullDiskIsToldAndLeavesTheOldImages) {
  const fs::path root = AddApplication("full");
  const std::string manifest = ReadFile(root / "package.ini");
  ASSERT_EQ(mount("full", root.c_str(), "tmpfs", 0, "size=16k"), 0) << strerror(errno);
  WriteFile(root / "package.ini", manifest);
  PutAssembly("Greeter.dll", root / "bin/Greeter.dll");
  int result = NI_ERROR_NO_SPACE;
  int refusals = 0;
  for (int size = 16; result != 0 && size < 4096; size += 4, ++refusals) {  // in KiB
    const std::string option = "size=" + std::to_string(size) + "k";
    ASSERT_EQ(mount("full", root.c_str(), "tmpfs", MS_REMOUNT, option.c_str()), 0);
    EXPECT_EQ(Images(root), Names{});
    result = Create("full");
    EXPECT_TRUE(result == 0 || result == NI_ERROR_NO_SPACE) << result << " at " << size;
  }
  EXPECT_GT(refusals, 3);
  EXPECT_EQ(Images(root), Names{"bin/.native_image/Greeter.ni.dll"});
  EXPECT_EQ(removeNativeImagesUnderPackageRoot("full"), 0);
  EXPECT_EQ(Images(root), Names{});
  umount2(root.c_str(), MNT_DETACH);
}

TEST_F(HostImages, LinksInAPackageLeadNowhere) {
  const fs::path root = AddApplication("links");
  WriteFile("/opt/usr/apps/victim/Kept.ni.dll", "kept");
  fs::create_directory_symlink("/opt/usr/apps/victim", root / "bin/.native_image");
  EXPECT_EQ(Create("links"), 0);
  EXPECT_TRUE(fs::is_directory(fs::symlink_status(root / "bin/.native_image")));
  fs::rename(root / "bin", root / "real");
  fs::create_directory_symlink("real", root / "bin");
  EXPECT_EQ(Create("links"), 0);  // there is no directory bin, thus nothing to compile
  const NativeImageOption option = {};
  for (const char* list : {"", "relative", "/opt/usr/apps/links/../victim",
                           "/opt/usr/apps/links:/opt/usr/apps/victim"}) {
    EXPECT_LT(createNativeImagesUnderDirs(list, &option), 0) << list;
  }
  EXPECT_EQ(Images("/opt/usr/apps/victim"), Names{"Kept.ni.dll"});
}

TEST_F(HostImages, ABubbleIsMadeAgainWithoutTheMemberThatFails) {
  const fs::path root = AddApplication("bubble");
  WriteFile(root / "bin/Damaged.dll", DamagedAssembly());
  PutAssembly("Greeter.dll", root / "bin/again/Greeter.dll");  // two of one name end the compiler
  EXPECT_EQ(Create("bubble", NI_FLAG_PACKAGE_ROOT | NI_FLAG_INPUT_BUBBLE), 0);
  EXPECT_EQ(Images(root),
            (Names{"bin/.native_image/App.ni.dll", "bin/.native_image/Greeter.ni.dll"}));
}

TEST_F(HostImages, TheCompilerIsConfinedAndInBackgroundIdle) {
  Gate gate(AddApplication("confined"));
  ASSERT_EQ(setenv("DOTNET_DefaultDiagnosticPortSuspend", "1", 1), 0);  // would hang it
  auto result = std::async(std::launch::async, [] {
    EXPECT_EQ(nice(19), 19);
    return Create("confined", NI_FLAG_PACKAGE_ROOT | NI_FLAG_SINGLE_THREAD);
  });
  const pid_t compiler = gate.AwaitCompiler();
  const std::string status = ReadFile("/proc/" + std::to_string(compiler) + "/status");
  EXPECT_NE(status.find("NoNewPrivs:\t1"), std::string::npos) << status;
  EXPECT_NE(status.find("Seccomp:\t2"), std::string::npos) << status;
  std::ifstream users("/proc/self/uid_map");
  uint64_t first = 0, outside = 0, count = 0;
  users >> first >> outside >> count;
  if (count > 65534) {
    EXPECT_EQ(status.find("Uid:\t0"), std::string::npos) << status;
  }
  EXPECT_EQ(sched_getscheduler(compiler), SCHED_IDLE);
  gate.Open();
  EXPECT_EQ(result.get(), 0);
  unsetenv("DOTNET_DefaultDiagnosticPortSuspend");
}

TEST_F(HostImages, WithoutAUsableCompilerOrFrameworkTheCauseHasItsOwnCode) {
  const fs::path root = AddApplication("causes");
  const fs::path config = root / "bin/App.runtimeconfig.json";
  for (const char* text :
       {"", "{}", "[", "{\"runtimeOptions\":{}}",
        R"({"runtimeOptions":{"framework":{"name":"None","version":"1.0.0"}}})",
        R"({"runtimeOptions":{"framework":{"name":"../x","version":"1.0.0"}}})"}) {
    WriteFile(config, text);
    EXPECT_EQ(Create("causes"), NI_ERROR_NO_FRAMEWORK) << text;
  }
  fs::remove(config);
  ASSERT_EQ(mkfifo(config.c_str(), 0644), 0);
  EXPECT_EQ(Create("causes"), NI_ERROR_NO_FRAMEWORK);
  fs::remove(config);
  const fs::path compiler = "/usr/share/dotnet.kivor/netcoreapp/crossgen2";
  fs::rename(compiler, compiler.string() + ".away");
  EXPECT_EQ(initNativeImageCommon(), NI_ERROR_NO_COMPILER);
  EXPECT_EQ(Create("causes"), NI_ERROR_NO_COMPILER);
  fs::rename(compiler.string() + ".away", compiler);
  EXPECT_EQ(Create("causes"), 0);  // no configuration: for the compiler's own framework
}

}  // namespace
