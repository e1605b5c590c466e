// SPDX-License-Identifier: MIT
// The platform double's packages, read from the directories on every look-up, and the small calls.
#include <glib.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>

#include "platform/cpu_boost.h"
#include "platform/log.h"
#include "platform/package_info.h"
#include "platform/path.h"
#include "platform/smack.h"
#include "platform/watchdog.h"
#include "platform_double.h"

using platform_double::Ask;

struct app_info {
  std::string id, type;
  std::vector<std::pair<std::string, std::string>> metadata;
};

struct package_info {
  std::string id, root, main_app_id;
  std::map<std::string, app_info> applications;
};

namespace {

std::string Text(const char* text) {
  return text ? text : "(null)";
}

std::optional<std::string> Value(GKeyFile* file, const std::string& group, const char* key) {
  std::unique_ptr<char, decltype(&g_free)> value(
      g_key_file_get_string(file, group.c_str(), key, nullptr), g_free);
  return value ? std::optional<std::string>(value.get()) : std::nullopt;
}

void ReadApplications(GKeyFile* file, package_info& package) {
  std::unique_ptr<char*, decltype(&g_strfreev)> groups(g_key_file_get_groups(file, nullptr),
                                                       g_strfreev);
  for (char** group = groups.get(); *group; ++group) {
    const std::string name = *group;
    if (name.rfind("Application ", 0) != 0) continue;
    app_info app{name.substr(12), Value(file, name, "Type").value_or(""), {}};
    const std::string metadata = "Metadata " + app.id;
    std::unique_ptr<char*, decltype(&g_strfreev)> keys(
        g_key_file_get_keys(file, metadata.c_str(), nullptr, nullptr), g_strfreev);
    for (char** key = keys.get(); key && *key; ++key)
      app.metadata.emplace_back(*key, Value(file, metadata, *key).value_or(""));
    package.applications.emplace(app.id, std::move(app));
  }
}

std::optional<package_info> Load(const std::string& id) {
  const bool well_formed =
      !id.empty() && id.size() <= 128 && id[0] != '.' &&
      id.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-") ==
          std::string::npos;
  std::string cause = "malformed package id";
  for (const char* area : {"/opt/usr/apps/", "/usr/apps/"}) {
    if (!well_formed) break;
    const std::string root = area + id, manifest = root + "/package.ini";
    std::unique_ptr<GKeyFile, decltype(&g_key_file_unref)> file(g_key_file_new(), g_key_file_unref);
    GError* error = nullptr;
    if (g_key_file_load_from_file(file.get(), manifest.c_str(), G_KEY_FILE_NONE, &error)) {
      package_info package{
          id, root, Value(file.get(), "Package", "MainApplication").value_or(""), {}};
      if (Value(file.get(), "Package", "Id") == id && !package.main_app_id.empty()) {
        ReadApplications(file.get(), package);
        return package;
      }
      cause = manifest + ": Id or MainApplication is missing or differs";
      break;
    }
    cause = manifest + ": " + error->message;
    g_clear_error(&error);
    if (std::filesystem::exists(root)) break;
  }
  log_print(LOG_ID_MAIN, LOG_PRIORITY_WARNING, "VORNA_PLATFORM", "package %s: %s", id.c_str(),
            cause.c_str());
  return std::nullopt;
}

// The package of an application has the application's id or a prefix of it that a dot ends.
std::optional<app_info> FindApplication(const std::string& app_id) {
  for (std::string id = app_id; !id.empty();) {
    const bool installed = std::filesystem::exists("/opt/usr/apps/" + id) ||
                           std::filesystem::exists("/usr/apps/" + id);
    const auto package = installed ? Load(id) : std::nullopt;
    if (package && package->applications.count(app_id)) return package->applications.at(app_id);
    const size_t dot = id.rfind('.');
    id.resize(dot == std::string::npos ? 0 : dot);
  }
  return std::nullopt;
}

}  // namespace

std::string platform_double::PackageRoot(const std::string& package_id) {
  const auto package = Load(package_id);
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
  auto loaded = package_id && package ? Load(package_id) : std::nullopt;
  if (!loaded) return -1;
  *package = new package_info(std::move(*loaded));
  return 0;
}

int package_info_get_main_app_id(package_info* package, const char** app_id) {
  if (const int result = Ask({"package_info_get_main_app_id", {package->id}}).result) return result;
  *app_id = package->main_app_id.c_str();
  return 0;
}

int package_info_get_root_path(package_info* package, const char** path) {
  if (const int result = Ask({"package_info_get_root_path", {package->id}}).result) return result;
  *path = package->root.c_str();
  return 0;
}

int package_info_destroy(package_info* package) {
  delete package;
  return 0;
}

int app_info_get(const char* app_id, app_info** app) {
  if (const int result = Ask({"app_info_get", {Text(app_id)}}).result) return result;
  auto found = app_id && app ? FindApplication(app_id) : std::nullopt;
  if (!found) return -1;
  *app = new app_info(std::move(*found));
  return 0;
}

int app_info_get_app_type(app_info* app, const char** app_type) {
  if (const int result = Ask({"app_info_get_app_type", {app->id}}).result) return result;
  *app_type = app->type.c_str();
  return 0;
}

int app_info_foreach_metadata(app_info* app, app_info_metadata_callback callback, void* user_data) {
  if (const int result = Ask({"app_info_foreach_metadata", {app->id}}).result) return result;
  for (const auto& [key, value] : app->metadata)
    if (callback(key.c_str(), value.c_str(), user_data) != 0) break;
  return 0;
}

int app_info_destroy(app_info* app) {
  delete app;
  return 0;
}

const char* platform_path_getenv(int variable) {
  return variable == PLATFORM_PATH_RW_APPS ? "/opt/usr/apps" : nullptr;
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
