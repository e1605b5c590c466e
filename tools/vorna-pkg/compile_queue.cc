// SPDX-License-Identifier: MIT
#include "compile_queue.h"

#include <gio/gio.h>

#include <memory>

#include "error.h"

namespace vorna_pkg {
namespace {

constexpr char kName[] = "org.kivor.vorna";
constexpr char kPath[] = "/org/kivor/vorna";
// The service answers at once; its start by activation may take a while on a busy machine.
constexpr int kPatienceMs = 20'000;
constexpr int kCompiled = 1;  // of GetPackageAOTStatus

struct ObjectUnref {
  void operator()(void* object) const { g_object_unref(object); }
};
struct VariantUnref {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
};

[[noreturn]] void ThrowError(GError* error) {
  const std::unique_ptr<GError, decltype(&g_error_free)> owner(error, &g_error_free);
  g_dbus_error_strip_remote_error(error);
  throw Error(error->message);
}

class Service {
 public:
  // A connection of its own: the shared one ends the process when the bus does.
  Service() {
    GError* error = nullptr;
    const std::unique_ptr<char, decltype(&g_free)> address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error), &g_free);
    if (!address) ThrowError(error);
    connection_.reset(g_dbus_connection_new_for_address_sync(
        address.get(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error));
    if (!connection_) ThrowError(error);
  }

  bool HasQueued(const std::string& id) const {
    gboolean answer = FALSE;
    g_variant_get(Call("IsPackageInAOTQueue", id, "(b)").get(), "(b)", &answer);
    return answer != FALSE;
  }
  bool HasCompiled(const std::string& id) const {
    gint32 result = 0;
    gint32 status = 0;
    g_variant_get(Call("GetPackageAOTStatus", id, "(ii)").get(), "(ii)", &result, &status);
    return result == 0 && status == kCompiled;
  }
  int Remove(const std::string& id) const { return Result("RemovePackageFromAOTQueue", id); }
  int Add(const std::string& id) const { return Result("AddPackageToAOTQueue", id); }

 private:
  using Reply = std::unique_ptr<GVariant, VariantUnref>;

  int Result(const char* method, const std::string& id) const {
    gint32 result = 0;
    g_variant_get(Call(method, id, "(i)").get(), "(i)", &result);
    return result;
  }

  Reply Call(const char* method, const std::string& id, const char* reply_type) const {
    GError* error = nullptr;
    Reply reply(g_dbus_connection_call_sync(
        connection_.get(), kName, kPath, kName, method, g_variant_new("(s)", id.c_str()),
        G_VARIANT_TYPE(reply_type), G_DBUS_CALL_FLAGS_NONE, kPatienceMs, nullptr, &error));
    if (!reply) ThrowError(error);
    return reply;
  }

  std::unique_ptr<GDBusConnection, ObjectUnref> connection_;
};

}  // namespace

std::string QueueForCompile(const std::string& package_id) {
  try {
    const Service service;
    // A package that is being compiled is still in the queue, and adding it again would do nothing:
    // the end of the old version's compile would be the end of its time there. Its removal ends
    // that compile. That it may have ended by itself meanwhile makes no difference.
    if (service.HasQueued(package_id)) service.Remove(package_id);
    const int result = service.Add(package_id);
    return result == 0 ? "" : "the service answers " + std::to_string(result);
  } catch (const Error& error) {
    return error.what();
  }
}

void QueueUnlessCompiled(const std::string& package_id) {
  try {
    const Service service;
    if (!service.HasCompiled(package_id)) service.Add(package_id);
  } catch (const Error&) {
    // Nothing was promised, and the cause of the failure before this is what matters.
  }
}

}  // namespace vorna_pkg
