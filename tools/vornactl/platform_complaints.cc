// SPDX-License-Identifier: MIT
#include "platform_complaints.h"

#include <glib.h>

#include <cstdarg>
#include <string_view>
#include <utility>

#include "common/glib_ptr.h"
#include "platform/log.h"

namespace {

constexpr std::string_view kDaemonTag = "VORNA_SERVER";

std::string last_complaint;

}  // namespace

// Stands before the platform library's own function, for the library's calls too.
extern "C" int log_print(int, int priority, const char* tag, const char* format, ...) {
  // The daemon's modules report that something failed; the platform says why.
  if (priority < LOG_PRIORITY_WARNING || tag == kDaemonTag) return 0;
  va_list arguments;
  va_start(arguments, format);
  last_complaint = GCharPtr(g_strdup_vprintf(format, arguments)).get();
  va_end(arguments);
  return 0;
}

namespace vornactl {

std::string TakePlatformComplaint() {
  return std::exchange(last_complaint, {});
}

}  // namespace vornactl
