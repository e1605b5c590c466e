// SPDX-License-Identifier: MIT
#include "transaction.h"

#include <variant>

#include "compile_queue.h"
#include "installed_packages.h"
#include "interruption.h"
#include "messages.h"
#include "recovery_file.h"
#include "tree_copy.h"

namespace vorna_pkg {
namespace {

enum class Outcome { kDone, kTakenBack };

// Directories, the record and the service's queue file need room too.
constexpr uint64_t kRoomToSpare = 1 << 20;

constexpr char kQueueCommand[] =
    "gdbus call --system --dest org.kivor.vorna --object-path /org/kivor/vorna "
    "--method org.kivor.vorna.AddPackageToAOTQueue ";

void Queue(const std::string& package_id, Outcome outcome) {
  const auto found = host::FindPackage(package_id);
  const auto* package = std::get_if<host::Package>(&found);
  if (package == nullptr || !AsksForCompile(*package)) return;
  if (outcome == Outcome::kTakenBack) {
    // The service may have dropped the package when it saw the recovery file.
    QueueUnlessCompiled(package_id);
    return;
  }
  const std::string cause = QueueForCompile(package_id);
  if (cause.empty()) {
    Say(package_id + " is queued for compilation");
  } else {
    Warn(package_id + " is not queued for compilation: " + cause +
         "; when the service can run: " + kQueueCommand + package_id);
  }
}

// The end of every change. The recovery file goes last: a run that is killed before that leaves the
// rest to the next.
void Settle(const ApplicationArea& area, const RecoveryFile& file, Outcome outcome) {
  area.Sweep();
  Queue(file.record()->package_id, outcome);
  file.Remove();
}

template <typename Change>
void RunWithRecoveryFile(const ApplicationArea& area, const RecoveryFile& file, Change change) {
  try {
    change();
  } catch (const std::exception&) {
    try {
      Settle(area, file, Outcome::kTakenBack);
    } catch (const Error& error) {  // the cause of both is the first one
      Warn(error.what());
    }
    throw;
  }
  Settle(area, file, Outcome::kDone);
}

void RequireRoom(const ApplicationArea& area, const PackagePlan& plan) {
  const uint64_t wanted = plan.source.bytes() + kRoomToSpare;
  const uint64_t available = area.FreeSpace();
  if (wanted > available) {
    throw Error(plan.id + " needs " + SizeText(wanted) + ", and " + kApplications + " has " +
                SizeText(available) + " free: make room and try again");
  }
}

Outcome OutcomeOf(const ApplicationArea& area, const RecoveryRecord& record) {
  ino_t inode = area.InodeOf(record.package_id);
  if (record.operation != Operation::kUninstall) {
    return inode != 0 && inode != record.replaced_inode ? Outcome::kDone : Outcome::kTakenBack;
  }
  // What was asked for can still be done, and the service has given the package up already.
  try {
    if (inode != 0) area.Withdraw(record.package_id);
    return Outcome::kDone;
  } catch (const Error& error) {
    Warn(error.what());
    return Outcome::kTakenBack;
  }
}

std::string Named(const RecoveryRecord& record) {
  const char* operation = record.operation == Operation::kInstall  ? "installation"
                          : record.operation == Operation::kUpdate ? "update"
                                                                   : "removal";
  return std::string("the interrupted ") + operation + " of " + record.package_id;
}

}  // namespace

void RecoverInterrupted(const ApplicationArea& area) {
  for (const RecoveryFile& file : RecoveryFile::FindAll(area.recovery())) {
    if (!file.record()) {
      file.Remove();
      continue;
    }
    const Outcome outcome = OutcomeOf(area, *file.record());
    Settle(area, file, outcome);
    Complain(Named(*file.record()) +
             (outcome == Outcome::kDone ? " is completed" : " is taken back"));
  }
  area.Sweep();
}

void InstallPackage(const ApplicationArea& area, const PackagePlan& plan) {
  const ino_t replaced = area.InodeOf(plan.id);
  const bool is_update = replaced != 0;
  RequireRoom(area, plan);
  ThrowIfInterrupted();
  const RecoveryFile file = RecoveryFile::Create(
      area.recovery(), {is_update ? Operation::kUpdate : Operation::kInstall, plan.id, replaced});
  RunWithRecoveryFile(area, file, [&] {
    host::UniqueFd root;
    const std::string stage = area.MakeStage(plan.id, &root);
    CopyPackage(plan, root.get());
    ThrowIfInterrupted();
    area.Exchange(stage, plan.id, is_update);
    Say(plan.id + (is_update ? " is updated: " : " is installed: ") +
        Count(plan.source.files(), "file") + ", " + SizeText(plan.source.bytes()));
  });
}

void UninstallPackage(const ApplicationArea& area, const std::string& package_id) {
  const ino_t inode = area.InodeOf(package_id);
  if (inode == 0) {
    OpenPackage(package_id);
    throw Error(package_id + " is preloaded in " + host::kReadOnlyApplications +
                " and cannot be uninstalled");
  }
  const auto withdraw = [&] {
    area.Withdraw(package_id);
    Say(package_id + " is uninstalled");
  };
  try {
    const RecoveryFile file =
        RecoveryFile::Create(area.recovery(), {Operation::kUninstall, package_id, inode});
    RunWithRecoveryFile(area, file, withdraw);
  } catch (const Error& error) {
    // Uninstalling is how room is made; without the file the service only learns later that the
    // package is gone, and the sweep is the next run's if this one is killed.
    if (!error.IsDiskFull() || area.InodeOf(package_id) != inode) throw;
    withdraw();
    area.Sweep();
  }
}

}  // namespace vorna_pkg
