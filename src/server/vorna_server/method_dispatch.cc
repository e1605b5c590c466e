// SPDX-License-Identifier: MIT
#include "server/vorna_server/method_dispatch.h"

#include <boost/asio/post.hpp>
#include <mutex>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "common/glib_ptr.h"
#include "common/log.h"
#include "server/globals/bus_constants.h"
#include "server/globals/globals.h"
#include "server/vorna_server/bus_interface.h"
#include "server/vorna_server/method_handlers.h"
#include "server/vorna_server/perform_package_aot.h"
#include "server/vorna_server/sender_uid.h"

namespace {

bool calls_are_deferred = false;
std::vector<GDBusMethodInvocation*> deferred_calls;

void accept_method_call() {
  {
    const std::lock_guard lock(num_of_pending_method_calls_mtx);
    ++num_of_pending_method_calls;
  }
  check_thread_idle_count = 0;
}

// Runs on the method-call pool. The invocation holds everything that the call came with, and ends
// with the reply.
void handle(DbusMethodHandler& handler, GDBusMethodInvocation* invocation,
            unsigned int sender_uid) {
  const vorna_error result =
      handler.executeHandler(g_dbus_method_invocation_get_parameters(invocation), sender_uid);
  if (result != VORNA_ERROR_NONE) LOGE("error(%d)", result);
  g_dbus_method_invocation_return_value(invocation, handler.createReturnValue(result));
  decrement_num_of_pending_method_calls();
}

// Any client may ask for more threads than there are.
void start_perform_package_aot(GDBusMethodInvocation* invocation, unsigned int sender_uid) {
  try {
    detached_threads.start([=] { perform_package_aot(invocation, sender_uid); });
  } catch (const std::system_error& error) {
    g_dbus_method_invocation_return_dbus_error(
        invocation, "org.freedesktop.DBus.Error.LimitsExceeded", error.what());
    decrement_num_of_pending_method_calls();
  }
}

void dispatch_method_call(GDBusMethodInvocation* invocation) {
  const unsigned int sender_uid =
      get_sender_uid(g_dbus_method_invocation_get_connection(invocation),
                     g_dbus_method_invocation_get_sender(invocation));
  const std::string_view method_name = g_dbus_method_invocation_get_method_name(invocation);
  if (method_name == "PerformPackageAOT") {
    start_perform_package_aot(invocation, sender_uid);
    return;
  }
  std::unique_ptr<DbusMethodHandler> handler = make_method_handler(method_name);
  if (!handler) {
    decrement_num_of_pending_method_calls();
    return;
  }
  boost::asio::post([handler = std::move(handler), invocation, sender_uid] {
    handle(*handler, invocation, sender_uid);
  });
}

void on_forwarded_call_answered(GObject* connection, GAsyncResult* answer, gpointer user_data) {
  auto* const invocation = static_cast<GDBusMethodInvocation*>(user_data);
  GError* error = nullptr;
  GVariant* const value =
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), answer, &error);
  if (value != nullptr) {
    const GVariantPtr owned_value(value);
    g_dbus_method_invocation_return_value(invocation, value);
  } else {
    g_dbus_method_invocation_take_error(invocation, error);
  }
  decrement_num_of_pending_method_calls();
  const std::lock_guard lock(num_of_pending_method_calls_mtx);
  if (num_of_pending_method_calls == 0) g_main_loop_quit(vorna_mainloop);
}

}  // namespace

void handle_method_call(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                        GVariant*, GDBusMethodInvocation* invocation, gpointer) {
  accept_method_call();
  if (calls_are_deferred) {
    deferred_calls.push_back(invocation);
  } else {
    dispatch_method_call(invocation);
  }
}

void defer_method_calls() {
  calls_are_deferred = true;
}

bool has_deferred_calls() {
  return !deferred_calls.empty();
}

void dispatch_deferred_calls() {
  calls_are_deferred = false;
  for (GDBusMethodInvocation* const invocation : std::exchange(deferred_calls, {})) {
    dispatch_method_call(invocation);
  }
}

bool forward_deferred_calls() {
  if (!has_deferred_calls()) return false;
  for (GDBusMethodInvocation* const invocation : std::exchange(deferred_calls, {})) {
    g_dbus_connection_call(
        g_dbus_method_invocation_get_connection(invocation), kBusName, kObjectPath, kInterfaceName,
        g_dbus_method_invocation_get_method_name(invocation),
        g_dbus_method_invocation_get_parameters(invocation), nullptr, G_DBUS_CALL_FLAGS_NONE,
        G_MAXINT, nullptr, on_forwarded_call_answered, invocation);
  }
  return true;
}
