// SPDX-License-Identifier: MIT
#include "server/vorna_server/bus_name.h"

#include <utility>

#include "common/glib_ptr.h"
#include "common/log.h"
#include "server/globals/bus_constants.h"
#include "server/globals/globals.h"
#include "server/vorna_server/bus_interface.h"
#include "server/vorna_server/method_dispatch.h"

namespace {

constexpr gint kDefaultTimeout = -1;

// Waits until the bus has let go of the name. One question more to the bus, and its answer comes
// behind every call that was sent to the name.
void release_bus_name() {
  g_bus_unown_name(std::exchange(owner_id, 0));
  const GVariantPtr answer(g_dbus_connection_call_sync(
      global_conn, kBusDaemonName, kBusDaemonPath, kBusDaemonInterface, "GetId", nullptr, nullptr,
      G_DBUS_CALL_FLAGS_NONE, kDefaultTimeout, nullptr, nullptr));
}

// One round of what has arrived; false when nothing had.
bool dispatch_arrived() {
  return g_main_context_iteration(nullptr, FALSE) != FALSE;
}

}  // namespace

bool own_bus_name() {
  owner_id = g_bus_own_name(G_BUS_TYPE_SYSTEM, kBusName, G_BUS_NAME_OWNER_FLAGS_NONE,
                            on_bus_acquired, on_name_acquired, on_name_lost, nullptr, nullptr);
  if (owner_id != 0) return true;
  LOGE_AS("server_init", "g_bus_own_name error");
  return false;
}

bool release_bus_name_unless_called() {
  if (global_conn == nullptr) return true;
  defer_method_calls();
  release_bus_name();
  while (!has_deferred_calls() && dispatch_arrived()) {
  }
  if (!has_deferred_calls()) return true;
  owner_id = g_bus_own_name_on_connection(global_conn, kBusName, G_BUS_NAME_OWNER_FLAGS_NONE,
                                          on_name_acquired, on_name_lost, nullptr, nullptr);
  return false;
}

void release_bus_name_and_dispatch_calls(std::chrono::steady_clock::time_point deadline) {
  if (global_conn == nullptr || owner_id == 0) return;
  release_bus_name();
  while (dispatch_arrived() && std::chrono::steady_clock::now() < deadline) {
  }
}
