// SPDX-License-Identifier: MIT
#include "server/vorna_server/sender_uid.h"

#include <cstdint>

#include "common/glib_ptr.h"
#include "common/log.h"
#include "server/globals/bus_constants.h"

namespace {

constexpr unsigned int kUnknownUid = static_cast<unsigned int>(-1);
constexpr gint kDefaultTimeout = -1;

// The bus's answer to a question about a connection; null when there is none or it is an error.
GObjectPtr<GDBusMessage> get_sender_unixinfo(GDBusConnection* connection, const char* sender,
                                             const char* question) {
  const GObjectPtr<GDBusMessage> message(g_dbus_message_new_method_call(
      kBusDaemonName, kBusDaemonPath, kBusDaemonInterface, question));
  if (!message) {
    LOGE("Can't allocate new method call");
    return nullptr;
  }
  g_dbus_message_set_body(message.get(), g_variant_new("(s)", sender));
  GError* error = nullptr;
  GObjectPtr<GDBusMessage> reply(g_dbus_connection_send_message_with_reply_sync(
      connection, message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, kDefaultTimeout, nullptr, nullptr,
      &error));
  if (reply && g_dbus_message_to_gerror(reply.get(), &error)) reply.reset();
  const GErrorPtr owned_error(error);
  if (error != nullptr) LOGE("Failed to get info [%s]", error->message);
  return reply;
}

}  // namespace

unsigned int get_sender_uid(GDBusConnection* connection, const char* sender) {
  unsigned int uid = kUnknownUid;
  if (const auto reply = get_sender_unixinfo(connection, sender, "GetConnectionUnixUser")) {
    g_variant_get(g_dbus_message_get_body(reply.get()), "(u)", &uid);
  }
  if (static_cast<std::int32_t>(uid) < 0) LOGE("failed to get uid");
  LOGD("sender_name(%s), uid(%d)", sender, uid);
  return uid;
}
