// SPDX-License-Identifier: MIT
// A recovery file tells the compile service, and the next run of vorna-pkg, that a package is being
// changed: it is there before the first change and goes after the last. One thread, which holds the
// application area's lock.
//
//   UPDATE          or INSTALL, UNINSTALL
//   vorna-pkg
//   org.example.notes
//   replaces 131    the inode of the directory that the change replaces; 0: there was none
#ifndef TOOLS_VORNA_PKG_RECOVERY_FILE_H
#define TOOLS_VORNA_PKG_RECOVERY_FILE_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace vorna_pkg {

enum class Operation { kInstall, kUpdate, kUninstall };

struct RecoveryRecord {
  Operation operation;
  std::string package_id;
  ino_t replaced_inode;
};

class RecoveryFile {
 public:
  // Written where it stays, since the service looks at files that are created, not at files that
  // are renamed. Durable when it returns. Throws Error, and leaves no file then.
  static RecoveryFile Create(int directory, const RecoveryRecord& record);
  // The files of runs that were killed. Those of others are not touched.
  static std::vector<RecoveryFile> FindAll(int directory);

  // Nothing if the writer did not get to its end: then it has changed nothing either.
  const std::optional<RecoveryRecord>& record() const { return record_; }
  void Remove() const;

 private:
  RecoveryFile(int directory, std::string name) : directory_(directory), name_(std::move(name)) {}

  int directory_;
  std::string name_;
  std::optional<RecoveryRecord> record_;
};

}  // namespace vorna_pkg

#endif
