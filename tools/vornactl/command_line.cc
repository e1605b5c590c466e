// SPDX-License-Identifier: MIT
#include "command_line.h"

#include <CLI/CLI.hpp>
#include <string>

#include "base/text.h"
#include "exit_status.h"
#include "terminal.h"

namespace vornactl {
namespace {

constexpr int kHighestPriority = -20;
constexpr int kLowestPriority = 19;

// The bus carries nothing but UTF-8, and the queue file has one id a line.
std::string CheckPackageId(const std::string& id) {
  const bool is_fit = !id.empty() && host::Visible(id) == id;
  return is_fit ? "" : "\"" + host::Visible(id) + "\" is no package id";
}

class CommandLine {
 public:
  CommandLine() : app_("Shows and steers the daemon that compiles installed .NET packages.") {
    // The commands inherit what is set before they are added.
    app_.name("vornactl");
    app_.footer(kExitStatusHelp);
    app_.fallthrough();
    app_.require_subcommand(1);
    app_.failure_message(CLI::FailureMessage::simple);
    app_.set_version_flag("--version", std::string("vornactl ") + VORNA_VERSION);
    app_.add_flag("--no-color", no_colour_, "No colours, as with NO_COLOR in the environment");
    AddQuestions();
    AddQueueCommands();
    AddSettings();
  }

  std::variant<Options, int> Parse(int argc, char** argv) {
    try {
      app_.parse(argc, argv);
      CheckCombination();
    } catch (const CLI::Success& done) {  // help or version
      return app_.exit(done);
    } catch (const CLI::ParseError& error) {
      std::string command = "vornactl";
      for (const CLI::App* used : app_.get_subcommands()) command += " " + used->get_name();
      Complain(error.what(), "see '" + command + " --help'");
      return int{kWrongUsage};
    }
    if (no_colour_) ForbidColours();
    return options_;
  }

 private:
  CLI::App* AddCommand(const char* name, const char* description, int (*run)(const Options&)) {
    CLI::App* command = app_.add_subcommand(name, description);
    command->callback([this, run] { options_.run = run; });
    return command;
  }

  CLI::Option* AddPackages(CLI::App* command, const char* description) {
    return command->add_option("PACKAGE", options_.packages, description)->check(&CheckPackageId);
  }

  void AddQuestions() {
    CLI::App* status =
        AddCommand("status", "Show what the daemon does, or what is with packages", &RunStatus);
    AddPackages(status, "Packages to tell about");
    status->add_flag("--json", options_.json, "One JSON object");
    status->add_flag("--activate", options_.activate,
                     "Start the daemon; otherwise nothing is started by being asked about");
    CLI::App* watch = AddCommand(
        "watch", "Show what happens, until interrupted; does not keep an idle daemon alive",
        &RunWatch);
    watch->add_flag("--json", options_.json, "One JSON object a line for each event");
  }

  void AddQueueCommands() {
    CLI::App* add = AddCommand("add", "Put packages at the end of the queue", &RunAdd);
    CLI::Option* packages = AddPackages(add, "Packages to queue");
    add->add_flag(
           "--stale", options_.stale,
           "Every installed package that asks to be compiled and whose images are missing or "
           "no longer fit")
        ->excludes(packages);
    add->add_flag("--wait", options_.wait, "Wait until they have left the queue");
    AddPackages(AddCommand("remove", "Take packages out of the queue; ends a compile in progress",
                           &RunRemove),
                "Packages to take out")
        ->required();
    AddPackages(AddCommand("compile",
                           "Compile packages now, with all processors, and wait; what the queue "
                           "compiles is put off",
                           &RunCompile),
                "Packages to compile")
        ->required();
    CLI::App* clean =
        AddCommand("clean", "Empty the queue, or remove the native images of packages", &RunClean);
    AddPackages(clean, "Packages whose images are removed; without one the queue is emptied");
    clean->add_flag("--yes", options_.yes, "Empty the queue without a question");
  }

  void AddSettings() {
    AddCommand("pause", "Pause the compiling of the queue", &RunPause);
    AddCommand("resume", "Go on with the queue", &RunResume);
    AddCommand("priority", "Set the nice value of the daemon and its compilers", &RunPriority)
        ->add_option("N", options_.nice, "-20 is the highest priority, 19 the lowest")
        ->required()
        ->check(CLI::Range(kHighestPriority, kLowestPriority));
    AddSwitch("cpu-log", "Log the use of the CPU; keeps the daemon alive", &RunCpuLog);
    AddSwitch("cpu-gate", "Compile the queue only while the CPU is less than half busy",
              &RunCpuGate);
  }

  void AddSwitch(const char* name, const char* description, int (*run)(const Options&)) {
    AddCommand(name, description, run)
        ->add_option_function<std::string>(
            "on|off", [this](const std::string& value) { options_.on = value == "on"; })
        ->required()
        ->check(CLI::IsMember({"on", "off"}));
  }

  void CheckCombination() const {
    if (options_.run == &RunAdd && options_.packages.empty() && !options_.stale) {
      throw CLI::RequiredError("PACKAGE or --stale");
    }
  }

  CLI::App app_;
  Options options_;
  bool no_colour_ = false;
};

}  // namespace

std::variant<Options, int> ParseCommandLine(int argc, char** argv) {
  return CommandLine().Parse(argc, argv);
}

}  // namespace vornactl
