// SPDX-License-Identifier: MIT
#include "common/kx_utils/files.h"

#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <boost/system/error_code.hpp>
#include <cerrno>

#include "common/log.h"

bool createDir(const std::string& path) {
  if (boost::filesystem::exists(path)) return true;
  boost::system::error_code error;
  boost::filesystem::create_directories(path, error);
  if (!error) return true;
  LOGE("Failed to create directory: %s", error.message().c_str());
  return false;
}

void removeFile(const std::string& path) {
  boost::system::error_code error;
  boost::filesystem::remove(path, error);
  if (error) LOGE("Cannot remove: %s, %s", path.c_str(), error.message().c_str());
}

bool isRealPath(const std::string& path) {
  if (path.empty()) {
    LOGE("Path is empty");
    return false;
  }
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) {
      LOGD("File does not exist. No need to check symbolic links. ###");
      return true;
    }
    LOGE("lstat error.");
    return false;
  }
  if (S_ISLNK(status.st_mode)) {
    LOGE("Symbolic link is detected : %s", path.c_str());
    return false;
  }
  return true;
}
