// SPDX-License-Identifier: MIT
#include "server/vorna_server/bus_interface.h"

#include <mutex>

#include "common/glib_ptr.h"
#include "common/log.h"
#include "server/globals/bus_constants.h"
#include "server/globals/globals.h"
#include "server/vorna_server/method_dispatch.h"

namespace {

constexpr char kIntrospectionXml[] =
    "<node>"
    "  <interface name='org.kivor.vorna'>"
    "    <method name='AOTDaemonProcess'>"
    "      <arg type='i' name='process_command' direction='in'/>"
    "      <arg type='i' name='result' direction='out'/>"
    "    </method>"
    "    <method name='AddPackageToAOTQueue'>"
    "      <arg type='s' name='package_id' direction='in'/>"
    "      <arg type='i' name='result' direction='out'/>"
    "    </method>"
    "    <method name='RemovePackageFromAOTQueue'>"
    "      <arg type='s' name='package_id' direction='in'/>"
    "      <arg type='i' name='result' direction='out'/>"
    "    </method>"
    "    <method name='GetAOTDaemonStatus'>"
    "      <arg type='s' name='curr_package' direction='out'/>"
    "      <arg type='i' name='queue_size' direction='out'/>"
    "      <arg type='b' name='is_paused' direction='out'/>"
    "      <arg type='i' name='thread_status' direction='out'/>"
    "    </method>"
    "    <method name='GetPackageAOTStatus'>"
    "      <arg type='s' name='package_id' direction='in'/>"
    "      <arg type='i' name='result' direction='out'/>"
    "      <arg type='i' name='package_status' direction='out'/>"
    "    </method>"
    "    <method name='PerformPackageAOT'>"
    "      <arg type='s' name='package_id' direction='in'/>"
    "      <arg type='i' name='result' direction='out'/>"
    "    </method>"
    "    <method name='SetAOTDaemonPriority'>"
    "      <arg type='i' name='priority' direction='in'/>"
    "      <arg type='i' name='result' direction='out'/>"
    "    </method>"
    "    <method name='IsPackageHighLaunchPriority'>"
    "      <arg type='s' name='package_id' direction='in'/>"
    "      <arg type='b' name='result' direction='out'/>"
    "    </method>"
    "    <method name='IsPackageInAOTQueue'>"
    "      <arg type='s' name='package_id' direction='in'/>"
    "      <arg type='b' name='result' direction='out'/>"
    "    </method>"
    "    <signal name='AOTCompileDone'>"
    "      <arg type='s' name='package_id' direction='out'/>"
    "    </signal>"
    "    <method name='EnableCPUUsageLogging'>"
    "      <arg type='b' name='flag' direction='in'/>"
    "      <arg type='i' name='result' direction='out'/>"
    "    </method>"
    "    <method name='EnableCPUUsageMonitoring'>"
    "      <arg type='b' name='flag' direction='in'/>"
    "      <arg type='i' name='result' direction='out'/>"
    "    </method>"
    "    <method name='CleanAOTQueue'>"
    "      <arg type='i' name='result' direction='out'/>"
    "    </method>"
    "    <method name='CleanAOTInPackage'>"
    "      <arg type='s' name='package_id' direction='in'/>"
    "      <arg type='i' name='result' direction='out'/>"
    "    </method>"
    "  </interface>"
    "</node>";

constexpr GDBusInterfaceVTable kInterfaceVtable = {handle_method_call, nullptr, nullptr, {}};

}  // namespace

bool parse_interface_description() {
  GError* error = nullptr;
  introspection_data = g_dbus_node_info_new_for_xml(kIntrospectionXml, &error);
  if (introspection_data != nullptr) return true;
  const GErrorPtr owned_error(error);
  LOGE_AS("server_init", "g_dbus_node_info_new_for_xml error(%s)", error->message);
  return false;
}

void on_bus_acquired(GDBusConnection* connection, const gchar* name, gpointer) {
  LOGD("bus acquired(%s)", name);
  // A bus that ends is a lost name, with an orderly end of the daemon, and not a SIGTERM to itself.
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  {
    const std::lock_guard lock(global_conn_mtx);
    global_conn = G_DBUS_CONNECTION(g_object_ref(connection));
  }
  GError* error = nullptr;
  const guint registration =
      g_dbus_connection_register_object(connection, kObjectPath, introspection_data->interfaces[0],
                                        &kInterfaceVtable, nullptr, nullptr, &error);
  if (registration != 0) return;
  const GErrorPtr owned_error(error);
  LOGE("g_dbus_connection_register_object error(%s)", error->message);
}

void on_name_acquired(GDBusConnection*, const gchar* name, gpointer) {
  LOGD("name acquired(%s)", name);
  dispatch_deferred_calls();
}

void on_name_lost(GDBusConnection*, const gchar* name, gpointer) {
  LOGE("name lost(%s)", name);
  if (!forward_deferred_calls()) g_main_loop_quit(vorna_mainloop);
}

void decrement_num_of_pending_method_calls() {
  const std::lock_guard lock(num_of_pending_method_calls_mtx);
  --num_of_pending_method_calls;
  num_of_pending_method_calls_cv.notify_all();
}
