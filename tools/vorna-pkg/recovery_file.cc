// SPDX-License-Identifier: MIT
#include "recovery_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <sstream>
#include <utility>

#include "application_area.h"
#include "base/files.h"
#include "directories.h"
#include "error.h"

namespace vorna_pkg {
namespace {

constexpr char kNamePrefix[] = "vorna-pkg.";
constexpr size_t kLargestFile = 4096;
constexpr std::array<std::pair<Operation, const char*>, 3> kOperations = {{
    {Operation::kInstall, "INSTALL"},
    {Operation::kUpdate, "UPDATE"},
    {Operation::kUninstall, "UNINSTALL"},
}};

std::string Serialize(const RecoveryRecord& record) {
  std::string text;
  for (const auto& [operation, word] : kOperations) {
    if (operation == record.operation) text = word;
  }
  return text + "\nvorna-pkg\n" + record.package_id + "\nreplaces " +
         std::to_string(record.replaced_inode) + "\n";
}

// Only what Serialize wrote, to its last byte: a line that was cut off may look like the id of
// another package.
std::optional<RecoveryRecord> Parse(const std::string& text, const std::string& name) {
  std::istringstream lines(text);
  std::string word;
  std::string writer;
  RecoveryRecord record;
  std::string replaces;
  std::getline(lines, word) && std::getline(lines, writer) &&
      std::getline(lines, record.package_id) && lines >> replaces >> record.replaced_inode;
  for (const auto& [operation, known] : kOperations) {
    record.operation = operation;
    if (word == known && Serialize(record) == text && kNamePrefix + record.package_id == name) {
      return record;
    }
  }
  return std::nullopt;
}

}  // namespace

RecoveryFile RecoveryFile::Create(int directory, const RecoveryRecord& record) {
  RecoveryFile result(directory, kNamePrefix + record.package_id);
  const std::string path = std::string(kRecoveryDirectory) + "/" + result.name_;
  const host::UniqueFd file(openat(directory, result.name_.c_str(),
                                   O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!file) throw SystemError(path);
  int error = host::WriteAll(file.get(), Serialize(record));
  if (error == 0 && fsync(file.get()) != 0) error = errno;
  if (error != 0) {
    unlinkat(directory, result.name_.c_str(), 0);
    throw SystemError(path, error);
  }
  SyncDirectory(directory, kRecoveryDirectory);
  result.record_ = record;
  return result;
}

std::vector<RecoveryFile> RecoveryFile::FindAll(int directory) {
  std::vector<RecoveryFile> files;
  for (const std::string& name : NamesIn(directory, kRecoveryDirectory)) {
    if (name.rfind(kNamePrefix, 0) != 0) continue;
    RecoveryFile file(directory, name);
    std::string text;
    if (host::ReadFileAt(directory, name, kLargestFile, &text) == 0) {
      file.record_ = Parse(text, name);
    }
    files.push_back(std::move(file));
  }
  return files;
}

void RecoveryFile::Remove() const {
  if (unlinkat(directory_, name_.c_str(), 0) != 0) {
    throw SystemError(std::string(kRecoveryDirectory) + "/" + name_);
  }
  SyncDirectory(directory_, kRecoveryDirectory);
}

}  // namespace vorna_pkg
