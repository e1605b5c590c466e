// SPDX-License-Identifier: MIT
#include "server/compile_finished_signal/compile_finished_signal.h"

#include <mutex>

#include "common/glib_ptr.h"
#include "common/log.h"
#include "server/globals/bus_constants.h"
#include "server/globals/globals.h"

namespace {

// A reference of the caller's own: the daemon gives its own up while workers may still run.
GObjectPtr<GDBusConnection> bus_connection() {
  const std::lock_guard lock(global_conn_mtx);
  if (global_conn == nullptr) return nullptr;
  return GObjectPtr<GDBusConnection>(G_DBUS_CONNECTION(g_object_ref(global_conn)));
}

}  // namespace

void emit_aot_compile_finished(std::string package_id) {
  LOGI("emit signal for package_id: %s", package_id.c_str());
  const GObjectPtr<GDBusConnection> connection = bus_connection();
  if (!connection) {
    LOGE("emit failed. dbus connection not available");
    return;
  }
  GError* error = nullptr;
  const gboolean emitted = g_dbus_connection_emit_signal(
      connection.get(), nullptr, kObjectPath, kInterfaceName, kCompileDoneSignal,
      g_variant_new("(s)", to_bus_string(package_id).get()), &error);
  const GErrorPtr owned_error(error);
  if (!emitted) {
    LOGE("emit to dbus error");
    if (error != nullptr) LOGE("emit error message(%s)", error->message);
    return;
  }
  LOGD("success emit aot compilation done signal");
}
