// SPDX-License-Identifier: MIT
#include "platform/smack.h"

#include <sys/xattr.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

int smack_getlabel(const char* path, char** label, enum smack_label_type type) {
  // The kernel's bound: a label has at most 255 characters.
  constexpr size_t kLongestLabel = 255;
  if (path == nullptr || label == nullptr || type != SMACK_LABEL_ACCESS) {
    errno = EINVAL;
    return -1;
  }
  char value[kLongestLabel];
  const ssize_t length = lgetxattr(path, "security.SMACK64", value, sizeof value);
  if (length < 0) return -1;
  char* copy = strndup(value, static_cast<size_t>(length));
  if (copy == nullptr) return -1;
  *label = copy;
  return 0;
}
