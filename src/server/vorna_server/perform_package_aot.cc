// SPDX-License-Identifier: MIT
#include "server/vorna_server/perform_package_aot.h"

#include <mutex>

#include "common/log.h"
#include "server/globals/globals.h"
#include "server/vorna_interface/single_package_aot.h"
#include "server/vorna_server/bus_interface.h"

void perform_package_aot(GDBusMethodInvocation* invocation, unsigned int sender_uid) {
  {
    const std::lock_guard lock(perform_aot_mtx);
    const char* package_id = nullptr;
    g_variant_get(g_dbus_method_invocation_get_parameters(invocation), "(&s)", &package_id);
    if (package_id != nullptr) {
      LOGD("package_id(%s), sender_uid(%d)", package_id, sender_uid);
      const vorna_error result = perform_single_package_aot(package_id);
      if (result != VORNA_ERROR_NONE) LOGE("error(%d)", result);
      g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", result));
    } else {
      LOGE("package_id is null");
    }
  }
  decrement_num_of_pending_method_calls();
}
