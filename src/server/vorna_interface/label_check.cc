// SPDX-License-Identifier: MIT
#include "server/vorna_interface/label_check.h"

#include <string_view>

#include "common/kx_utils/files.h"
#include "common/log.h"
#include "platform/native_image.h"
#include "platform/smack.h"
#include "server/vorna_interface/queue_operations.h"

namespace {

constexpr char kPrivilegedLabel[] = "System::Privileged";

std::string get_ni_dir_path_from_root_path(const std::string& root_path) {
  LOGD("root path: %s", root_path.c_str());
  return root_path + "/bin/" + ".native_image";
}

// The label is kept for the life of the process: a platform may hand out the same string again.
bool is_dir_has_smack_label(const std::string& path, const char* expected_label) {
  char* label = nullptr;
  if (smack_getlabel(path.c_str(), &label, SMACK_LABEL_ACCESS) != 0) {
    LOGE("Error getting smack label of %s", path.c_str());
    return false;
  }
  if (std::string_view(label) == expected_label) {
    LOGD("Dir has same smack label [%s]", label);
    return true;
  }
  LOGD("Dir [%s] has different smack label [%s] [comparant: %s]", path.c_str(), label,
       expected_label);
  return false;
}

void handle_smack_label_for_ni_dir(const std::string& package_id) {
  LOGI("NI dir SMACK=System::Privileged. Recompiling (deleting NI dir & readding pkg to queue)");
  if (removeNativeImagesUnderPackageRoot(package_id.c_str()) != 0) {
    LOGE("Failed to remove dlls for given package [%s], remove NI failed", package_id.c_str());
  }
  add_package_to_aot_queue(package_id.c_str());
}

}  // namespace

void check_label_of_ni_dir(const std::string& root_path, const std::string& package_id) {
  const std::string path = get_ni_dir_path_from_root_path(root_path);
  if (!isRealPath(path)) return;
  if (is_dir_has_smack_label(path, kPrivilegedLabel)) handle_smack_label_for_ni_dir(package_id);
}
