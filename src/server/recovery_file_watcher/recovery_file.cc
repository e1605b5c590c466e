// SPDX-License-Identifier: MIT
#include "server/recovery_file_watcher/recovery_file.h"

#include <fstream>

namespace server::recovery_file_watcher {

namespace {

std::string read_line(std::istream& stream) {
  std::string line;
  if (!std::getline(stream, line)) throw RecoveryFile::MissingLineException();
  return line;
}

// A line with both words is an update: the package will be there afterwards.
RecoveryFile::Type classify(const std::string& operation) {
  if (operation.find("UPDATE") != std::string::npos) return RecoveryFile::Type::kUpdate;
  if (operation.find("UNINSTALL") != std::string::npos) return RecoveryFile::Type::kUninstall;
  return RecoveryFile::Type::kOther;
}

// Opening a FIFO would wait for a writer, with the main loop behind it.
bool can_block(const std::filesystem::path& path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  return std::filesystem::is_fifo(status) || std::filesystem::is_character_file(status);
}

}  // namespace

RecoveryFile read_recovery_file(const std::filesystem::path& path) {
  if (can_block(path)) throw RecoveryFile::UnableToOpenFileException();
  std::ifstream stream(path);
  if (!stream.is_open()) throw RecoveryFile::UnableToOpenFileException();
  const RecoveryFile::Type type = classify(read_line(stream));
  read_line(stream);
  return {.package_id = read_line(stream), .path = path, .type = type};
}

}  // namespace server::recovery_file_watcher
