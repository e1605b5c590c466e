// SPDX-License-Identifier: MIT
// The least that a GDBus service does which asks the bus for its caller, answers off the main loop
// and logs: the measure for the daemon's method calls and start. It answers IsPackageInAOTQueue,
// with the daemon's number and length of log lines, and nothing else.
#include <gio/gio.h>
#include <sys/resource.h>

#include <utility>  // Boost 1.74 uses std::exchange without it

#include <boost/asio/post.hpp>

#include "platform/log.h"

namespace {

constexpr char kName[] = "org.kivor.vorna.minimal";
constexpr char kPath[] = "/org/kivor/vorna";
constexpr char kTag[] = "VORNA_MINIMAL";
constexpr int kLowestPriority = 19;

constexpr char kIntrospectionXml[] =
    "<node><interface name='org.kivor.vorna'>"
    "<method name='IsPackageInAOTQueue'>"
    "<arg type='s' name='package_id' direction='in'/>"
    "<arg type='b' name='result' direction='out'/>"
    "</method></interface></node>";

guint32 uid_of(GDBusConnection* connection, const char* sender) {
  GDBusMessage* question =
      g_dbus_message_new_method_call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                     "org.freedesktop.DBus", "GetConnectionUnixUser");
  g_dbus_message_set_body(question, g_variant_new("(s)", sender));
  GDBusMessage* answer = g_dbus_connection_send_message_with_reply_sync(
      connection, question, G_DBUS_SEND_MESSAGE_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
  g_object_unref(question);
  guint32 uid = 0;
  if (answer == nullptr) return uid;
  if (g_dbus_message_get_message_type(answer) == G_DBUS_MESSAGE_TYPE_METHOD_RETURN) {
    g_variant_get(g_dbus_message_get_body(answer), "(u)", &uid);
  }
  g_object_unref(answer);
  return uid;
}

void handle_method_call(GDBusConnection* connection, const char* sender, const char*, const char*,
                        const char*, GVariant* parameters, GDBusMethodInvocation* invocation,
                        gpointer) {
  const guint32 uid = uid_of(connection, sender);
  log_print(LOG_ID_MAIN, LOG_PRIORITY_DEBUG, kTag, "%s: %s(%d) > sender_name(%s), uid(%d)",
            "minimal_service", __func__, __LINE__, sender, uid);
  boost::asio::post([parameters, invocation, uid] {
    const char* package_id = nullptr;
    g_variant_get(parameters, "(&s)", &package_id);
    log_print(LOG_ID_MAIN, LOG_PRIORITY_DEBUG, kTag, "%s: %s(%d) > package_id(%s), sender_uid(%d)",
              "minimal_service", "executeHandler", __LINE__, package_id, uid);
    log_print(LOG_ID_MAIN, LOG_PRIORITY_DEBUG, kTag, "%s: %s(%d) > package_id: %s, in queue: %d",
              "minimal_service", "is_package_in_aot_queue", __LINE__, package_id, 0);
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(b)", FALSE));
  });
}

constexpr GDBusInterfaceVTable kInterfaceVtable = {handle_method_call, nullptr, nullptr, {}};

void on_bus_acquired(GDBusConnection* connection, const char*, gpointer node) {
  g_dbus_connection_register_object(connection, kPath,
                                    static_cast<GDBusNodeInfo*>(node)->interfaces[0],
                                    &kInterfaceVtable, nullptr, nullptr, nullptr);
}

}  // namespace

int main() {
  // The daemon's: a busy machine is to treat both alike.
  setpriority(PRIO_PROCESS, 0, kLowestPriority);
  GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kIntrospectionXml, nullptr);
  g_bus_own_name(G_BUS_TYPE_SYSTEM, kName, G_BUS_NAME_OWNER_FLAGS_NONE, on_bus_acquired, nullptr,
                 nullptr, node, nullptr);
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
