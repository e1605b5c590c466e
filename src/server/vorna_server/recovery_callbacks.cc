// SPDX-License-Identifier: MIT
#include "server/vorna_server/recovery_callbacks.h"

#include "server/vorna_interface/queue_operations.h"

using server::recovery_file_watcher::RecoveryFile;

void on_recovery_file_created(RecoveryFile file) {
  if (file.type == RecoveryFile::Type::kOther) return;
  remove_package_from_aot_queue(file.package_id.c_str());
}

void on_recovery_file_deleted(RecoveryFile file) {
  if (file.type != RecoveryFile::Type::kUpdate) return;
  add_package_to_aot_queue(file.package_id.c_str());
}
