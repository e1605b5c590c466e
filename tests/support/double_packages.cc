// SPDX-License-Identifier: MIT
// The platform double's packages, which are those of the host library, and the small calls.
#include <glib.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <variant>

#include "base/package_registry.h"
#include "platform/cpu_boost.h"
#include "platform/log.h"
#include "platform/package_info.h"
#include "platform/path.h"
#include "platform/smack.h"
#include "platform/watchdog.h"
#include "platform_double.h"

using platform_double::Ask;

struct package_info {
  host::Package package;
};

struct app_info {
  host::Application application;
};

namespace {

std::string Text(const char* text) {
  return text ? text : "(null)";
}

std::optional<host::Package> Found(const std::variant<host::Package, host::LookupFailure>& result) {
  if (const auto* package = std::get_if<host::Package>(&result)) return *package;
  log_print(LOG_ID_MAIN, LOG_PRIORITY_WARNING, "VORNA_PLATFORM", "%s",
            std::get<host::LookupFailure>(result).cause.c_str());
  return std::nullopt;
}

}  // namespace

std::string platform_double::PackageRoot(const std::string& package_id) {
  const auto package = Found(host::FindPackage(package_id));
  return package ? package->root : "";
}

extern "C" {

int log_print(int, int priority, const char* tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::unique_ptr<char, decltype(&g_free)> text(g_strdup_vprintf(format, arguments), g_free);
  va_end(arguments);
  Ask({"log_print", {std::to_string(priority), tag, text.get()}});
  return 0;
}

int package_info_get(const char* package_id, package_info** package) {
  if (const int result = Ask({"package_info_get", {Text(package_id)}}).result) return result;
  const auto found = Found(host::FindPackage(package_id ? package_id : ""));
  if (!found || found->main_application.empty()) return -1;
  *package = new package_info{*found};
  return 0;
}

int package_info_get_main_app_id(package_info* package, const char** app_id) {
  if (const int result = Ask({"package_info_get_main_app_id", {package->package.id}}).result)
    return result;
  *app_id = package->package.main_application.c_str();
  return 0;
}

int package_info_get_root_path(package_info* package, const char** path) {
  if (const int result = Ask({"package_info_get_root_path", {package->package.id}}).result)
    return result;
  *path = package->package.root.c_str();
  return 0;
}

int package_info_destroy(package_info* package) {
  delete package;
  return 0;
}

int app_info_get(const char* app_id, app_info** app) {
  if (const int result = Ask({"app_info_get", {Text(app_id)}}).result) return result;
  const auto found = Found(host::FindPackageOfApplication(app_id ? app_id : ""));
  if (!found) return -1;
  *app = new app_info{*found->FindApplication(app_id)};
  return 0;
}

int app_info_get_app_type(app_info* app, const char** app_type) {
  if (const int result = Ask({"app_info_get_app_type", {app->application.id}}).result)
    return result;
  *app_type = app->application.type.c_str();
  return 0;
}

int app_info_foreach_metadata(app_info* app, app_info_metadata_callback callback, void* user_data) {
  if (const int result = Ask({"app_info_foreach_metadata", {app->application.id}}).result)
    return result;
  for (const auto& [key, value] : app->application.metadata)
    if (callback(key.c_str(), value.c_str(), user_data) != 0) break;
  return 0;
}

int app_info_destroy(app_info* app) {
  delete app;
  return 0;
}

const char* platform_path_getenv(int variable) {
  return variable == PLATFORM_PATH_RW_APPS ? host::kReadWriteApplications : nullptr;
}

int cpu_boost_pid_request(pid_t pid, const CpuBoostRequest* r) {
  std::string request;
  for (int32_t field : {r->kind, r->action, r->group, r->reserved1, r->reserved2})
    request += std::to_string(field) + " ";
  return Ask({"cpu_boost_pid_request", {std::to_string(pid), request}}).result;
}

int tarrow_register_watchdog_service(int timeout_seconds) {
  return Ask({"tarrow_register_watchdog_service",
              {std::to_string(timeout_seconds), std::to_string(gettid())}})
      .result;
}

int tarrow_watchdog_notify() {
  return Ask({"tarrow_watchdog_notify", {std::to_string(gettid())}}).result;
}

int tarrow_unregister_watchdog_service() {
  return Ask({"tarrow_unregister_watchdog_service", {std::to_string(gettid())}}).result;
}

int smack_getlabel(const char* path, char** label, smack_label_type) {
  const platform_double::Answer answer = Ask({"smack_getlabel", {Text(path)}});
  if (answer.result != 0) return answer.result;
  std::string found = answer.text;
  if (found.empty()) {
    char value[256];
    const ssize_t length = lgetxattr(path, "security.SMACK64", value, sizeof value);
    if (length < 0) return -1;
    found.assign(value, length);
  }
  *label = strdup(found.c_str());
  return 0;
}

}  // extern "C"
