// SPDX-License-Identifier: MIT
// vorna-run PACKAGE [ARGUMENT…]: starts a package's application in this process, with its native
// images in place of the assemblies, and ends with its exit status.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/package_registry.h"
#include "dotnet/frameworks.h"
#include "dotnet/hostfxr.h"
#include "image_choice.h"

namespace vorna_run {
namespace {

constexpr int kCannotStart = 126;
constexpr char kTrustedAssemblies[] = "TRUSTED_PLATFORM_ASSEMBLIES";

struct Request {
  std::string package_id;
  std::vector<std::string> arguments;
  bool explain = false;
  bool no_images = false;
};

std::string FindExecutable(const host::Package& package) {
  const std::string manifest = package.root + "/package.ini";
  const host::Application* application = package.FindApplication(package.main_application);
  if (application == nullptr || application->executable.empty()) {
    throw std::runtime_error(manifest + ": it names no executable of its main application");
  }
  const std::string& executable = application->executable;
  if (executable[0] == '/' || ("/" + executable + "/").find("/../") != std::string::npos) {
    throw std::runtime_error(manifest + ": the executable \"" + executable +
                             "\" does not lie in the package");
  }
  return package.root + "/" + executable;
}

void Explain(const std::vector<Choice>& choices) {
  for (const Choice& choice : choices) {
    if (choice.image.empty()) {
      fprintf(stderr, "%s: assembly (%s)\n", choice.assembly.c_str(), choice.reason.c_str());
    } else {
      fprintf(stderr, "%s: native image\n", choice.assembly.c_str());
    }
  }
}

void UseImages(const host::Package& package, bool explain, host::HostfxrContext* context) {
  std::vector<std::string> trusted = host::SplitPathList(context->Property(kTrustedAssemblies));
  const auto choices = ChooseImages(trusted, package.root, host::FrameworksOf(trusted).CoreMajor());
  if (explain) Explain(choices);
  auto choice = choices.begin();
  std::string list;
  for (const std::string& assembly : trusted) {
    const bool chosen = choice != choices.end() && choice->assembly == assembly;
    list += (chosen && !choice->image.empty() ? choice->image : assembly) + ":";
    if (chosen) ++choice;
  }
  context->SetProperty(kTrustedAssemblies, list);
}

int Run(const Request& request) {
  auto found = host::FindPackage(request.package_id);
  if (const auto* failure = std::get_if<host::LookupFailure>(&found)) {
    throw std::runtime_error(failure->cause);
  }
  const host::Package& package = std::get<host::Package>(found);
  std::vector<std::string> command_line = {FindExecutable(package)};
  command_line.insert(command_line.end(), request.arguments.begin(), request.arguments.end());
  auto context = host::HostfxrContext::ForCommandLine(command_line);
  if (!request.no_images) UseImages(package, request.explain, &context);
  return context.RunApplication();
}

}  // namespace
}  // namespace vorna_run

int main(int argc, char** argv) {
  vorna_run::Request request;
  CLI::App app{"Starts the application of an installed package, with its native images."};
  app.add_option("PACKAGE", request.package_id, "The package's id")->required();
  app.add_flag("--explain", request.explain,
               "Tell for each assembly whether its native image is used, and why not");
  app.add_flag("--no-images", request.no_images, "Use the assemblies alone");
  app.footer("What follows PACKAGE is passed to the application.");
  // The options come before the package, and none takes a value: what follows it is not looked at.
  char** const package =
      std::find_if(argv + 1, argv + argc, [](const char* argument) { return argument[0] != '-'; });
  const int own_count = static_cast<int>(std::min(package + 1, argv + argc) - argv);
  CLI11_PARSE(app, own_count, argv);
  request.arguments.assign(argv + own_count, argv + argc);
  try {
    return vorna_run::Run(request);
  } catch (const std::exception& error) {
    fprintf(stderr, "vorna-run: %s\n", error.what());
    return vorna_run::kCannotStart;
  }
}
