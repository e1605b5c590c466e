// SPDX-License-Identifier: MIT
// vorna-pkg: installs, updates, uninstalls and inspects packages of .NET applications.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include "application_area.h"
#include "error.h"
#include "interruption.h"
#include "listing.h"
#include "manifest.h"
#include "messages.h"
#include "package_plan.h"
#include "transaction.h"
#include "verification.h"

namespace vorna_pkg {
namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;
constexpr int kDamaged = 3;
constexpr int kImagesWanted = 4;

constexpr char kFooter[] =
    "A package lives in /opt/usr/apps/ID: its manifest package.ini, and the published files in\n"
    "bin/. At every instant it is the old version or the new one, whole; a change that was cut\n"
    "short is completed or taken back by the next command that changes something.\n"
    "\n"
    "Exit status:\n"
    "  0  done; of verify: the package is what was installed, and its images are fresh\n"
    "  1  failed, and nothing has changed\n"
    "  2  wrong usage\n"
    "  3  of verify: the manifest or a file is damaged\n"
    "  4  of verify: the files are good, but an image that the package asks for is stale, damaged\n"
    "     or missing";

struct Request {
  InstallOptions install;
  std::vector<std::string> metadata;
  std::string id;
  bool as_json = false;
};

void ParseMetadata(Request* request) {
  for (const std::string& text : request->metadata) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
      throw CLI::ValidationError("--metadata", "\"" + text + "\" is not KEY=VALUE");
    }
    request->install.metadata.emplace_back(text.substr(0, equals), text.substr(equals + 1));
  }
}

int Install(const Request& request, bool is_update) {
  const ApplicationArea area;
  RecoverInterrupted(area);
  InstallPackage(area, MakePlan(request.install, is_update));
  return kDone;
}

int Uninstall(const Request& request) {
  CheckPackageId(request.id);
  const ApplicationArea area;
  RecoverInterrupted(area);
  UninstallPackage(area, request.id);
  return kDone;
}

int Verify(const Request& request) {
  switch (VerifyPackage(request.id)) {
    case Verdict::kDamaged:
      return kDamaged;
    case Verdict::kImagesWanted:
      return kImagesWanted;
    default:
      return kDone;
  }
}

using Action = std::function<int()>;

class CommandLine {
 public:
  CommandLine() {
    app_.require_subcommand(1);
    app_.footer(kFooter);
    AddInstall("install", "Install a package, or another version of it", false);
    AddInstall("update", "Install another version of a package, keeping what its manifest says",
               true);
    AddForOne("uninstall", "Remove a package", [this] { return Uninstall(request_); });
    AddJson(Add("list", "List the installed packages", [this] {
      ListPackages(request_.as_json);
      return kDone;
    }));
    AddJson(AddForOne("show", "Show what a package is", [this] {
      ShowPackage(request_.id, request_.as_json);
      return kDone;
    }));
    AddForOne("verify", "Check a package's manifest, files and native images",
              [this] { return Verify(request_); });
  }

  int Run(int argc, char** argv) {
    try {
      app_.parse(argc, argv);
      ParseMetadata(&request_);
    } catch (const CLI::ParseError& error) {
      return app_.exit(error) == 0 ? kDone : kWrongUsage;
    }
    return action_();
  }

 private:
  CLI::App* Add(const char* name, const char* description, Action action) {
    CLI::App* command = app_.add_subcommand(name, description);
    command->callback([this, action] { action_ = action; });
    return command;
  }

  CLI::App* AddForOne(const char* name, const char* description, Action action) {
    CLI::App* command = Add(name, description, std::move(action));
    command->add_option("ID", request_.id, "The package's id")->required();
    return command;
  }

  void AddJson(CLI::App* command) { command->add_flag("--json", request_.as_json, "Write JSON"); }

  void AddInstall(const char* name, const char* description, bool is_update) {
    CLI::App* command =
        Add(name, description, [this, is_update] { return Install(request_, is_update); });
    InstallOptions& options = request_.install;
    command
        ->add_option("DIR", options.directory,
                     "What 'dotnet publish' made, or a directory with a package.ini")
        ->required();
    command->add_option(
        "--id", options.id,
        "The package's id (else: that of package.ini, or the main assembly's name)");
    command->add_option("--main", options.main_assembly,
                        "The main assembly, X.dll (else: that of the one *.runtimeconfig.json)");
    command->add_option("--type", options.type, "The application's type (else: dotnet)");
    command
        ->add_option("--metadata", request_.metadata,
                     "KEY=VALUE for the main application; may be repeated")
        ->allow_extra_args(false);
    command->add_flag("--no-compile", options.no_compile, "Do not ask for compilation");
  }

  CLI::App app_{"Installs and inspects packages of .NET applications."};
  Request request_;
  Action action_;
};

}  // namespace
}  // namespace vorna_pkg

int main(int argc, char** argv) {
  umask(022);
  vorna_pkg::WatchForInterruption();
  try {
    return vorna_pkg::CommandLine().Run(argc, argv);
  } catch (const std::exception& error) {
    vorna_pkg::Complain(error.what());
    return vorna_pkg::kFailed;
  }
}
