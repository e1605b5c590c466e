// SPDX-License-Identifier: MIT
// What package management leaves in the recovery directory while it updates or uninstalls a
// package, as read by the daemon. A value; any thread.
#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <string>

namespace server::recovery_file_watcher {

struct RecoveryFile {
  // The installer's operation, from line 1 of the file.
  enum class Type : std::int32_t { kUpdate = 0, kUninstall = 1, kOther = 2 };

  class MissingLineException : public std::exception {
   public:
    const char* what() const noexcept override { return "Missing line(s)"; }
  };
  class UnableToOpenFileException : public std::exception {
   public:
    const char* what() const noexcept override { return "Unable to open file for reading"; }
  };

  std::string package_id;  // line 3, as it stands
  std::filesystem::path path;
  Type type;
};

// Reads a recovery file. Throws what RecoveryFile declares.
RecoveryFile read_recovery_file(const std::filesystem::path& path);

}  // namespace server::recovery_file_watcher
