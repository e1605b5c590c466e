// SPDX-License-Identifier: MIT
#include "daemon.h"

#include <signal.h>

#include <utility>

#include "error.h"
#include "server/globals/bus_constants.h"
#include "server/vorna_interface/daemon_commands.h"

namespace vornactl {
namespace {

// The daemon answers questions at once; the start by activation may take long on a busy device.
constexpr int kQuickMs = 30'000;
// What compiles, ends compilers or waits for them takes as long as it takes.
constexpr int kUnlimited = G_MAXINT;

constexpr char kStartAdvice[] =
    "start it with 'systemctl start vorna', or install its activation file";

GVariant* Id(const std::string& package) {
  return g_variant_new("(s)", package.c_str());
}

struct PendingCall {
  EventLoop* loop;
  GVariantPtr reply;
  GErrorPtr error;
};

void OnReply(GObject* connection, GAsyncResult* result, gpointer data) {
  PendingCall& call = *static_cast<PendingCall*>(data);
  GError* error = nullptr;
  call.reply.reset(g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error));
  call.error.reset(error);
  call.loop->Quit();
}

bool IsDBusError(const GError& error, GDBusError code) {
  return g_error_matches(&error, G_DBUS_ERROR, code) != FALSE;
}

}  // namespace

Daemon::Daemon(Activation activation) : activation_(activation) {
  GError* error = nullptr;
  // A connection of its own: the shared one ends the process when the bus does.
  const GCharPtr address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error));
  if (address) {
    connection_.reset(g_dbus_connection_new_for_address_sync(
        address.get(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error));
  }
  const GErrorPtr owned_error(error);
  if (!connection_) {
    throw Error(kUnreachable, std::string("the system bus cannot be reached: ") + error->message,
                "check that dbus runs: systemctl status dbus");
  }
  // GIO ignores SIGPIPE. A reader of this program's output that goes away should end it.
  signal(SIGPIPE, SIG_DFL);
}

Daemon::~Daemon() {
  if (watch_ != 0) g_bus_unwatch_name(watch_);
  if (subscription_ != 0) g_dbus_connection_signal_unsubscribe(connection_.get(), subscription_);
}

std::optional<uint32_t> Daemon::FindProcess() const {
  GError* error = nullptr;
  const GVariantPtr reply(g_dbus_connection_call_sync(
      connection_.get(), kBusDaemonName, kBusDaemonPath, kBusDaemonInterface,
      "GetConnectionUnixProcessID", g_variant_new("(s)", kBusName), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, kQuickMs, nullptr, &error));
  if (!reply) {
    if (IsDBusError(*error, G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
      g_error_free(error);
      return std::nullopt;
    }
    Throw(GErrorPtr(error));
  }
  guint32 process = 0;
  g_variant_get(reply.get(), "(u)", &process);
  return process;
}

DaemonStatus Daemon::Status() const {
  const GVariantPtr reply = Call("GetAOTDaemonStatus", nullptr, "(sibi)", kQuickMs);
  const char* front = nullptr;
  gint32 length = 0;
  gboolean is_paused = FALSE;
  gint32 worker = 0;
  g_variant_get(reply.get(), "(&sibi)", &front, &length, &is_paused, &worker);
  // With an empty queue a sentence stands where the package's id would.
  return {length > 0 ? front : "", length, is_paused != FALSE, worker};
}

PackageStatus Daemon::StatusOf(const std::string& package) const {
  const GVariantPtr reply = Call("GetPackageAOTStatus", Id(package), "(ii)", kQuickMs);
  PackageStatus status;
  g_variant_get(reply.get(), "(ii)", &status.result, &status.status);
  return status;
}

bool Daemon::IsQueued(const std::string& package) const {
  return Ask("IsPackageInAOTQueue", package);
}
bool Daemon::IsHighLaunchPriority(const std::string& package) const {
  return Ask("IsPackageHighLaunchPriority", package);
}
int Daemon::Add(const std::string& package) const {
  return Change("AddPackageToAOTQueue", Id(package), kQuickMs);
}
int Daemon::Remove(const std::string& package) const {
  return Change("RemovePackageFromAOTQueue", Id(package), kUnlimited);
}
int Daemon::Pause() const {
  return Change("AOTDaemonProcess", g_variant_new("(i)", DAEMON_PROCESS_PAUSE), kQuickMs);
}
int Daemon::Resume() const {
  return Change("AOTDaemonProcess", g_variant_new("(i)", DAEMON_PROCESS_START), kQuickMs);
}
int Daemon::SetPriority(int nice) const {
  return Change("SetAOTDaemonPriority", g_variant_new("(i)", nice), kQuickMs);
}
int Daemon::EnableCpuLog(bool enable) const {
  return Change("EnableCPUUsageLogging", g_variant_new("(b)", gboolean{enable}), kQuickMs);
}
int Daemon::EnableCpuGate(bool enable) const {
  return Change("EnableCPUUsageMonitoring", g_variant_new("(b)", gboolean{enable}), kQuickMs);
}
int Daemon::CleanQueue() const {
  return Change("CleanAOTQueue", nullptr, kUnlimited);
}
int Daemon::CleanPackage(const std::string& package) const {
  return Change("CleanAOTInPackage", Id(package), kUnlimited);
}

std::optional<int> Daemon::Compile(const std::string& package, EventLoop* loop) const {
  if (loop->is_interrupted()) return std::nullopt;
  PendingCall call{loop, nullptr, nullptr};
  const GObjectPtr<GCancellable> cancellable(g_cancellable_new());
  g_dbus_connection_call(connection_.get(), kBusName, kObjectPath, kInterfaceName,
                         "PerformPackageAOT", Id(package), G_VARIANT_TYPE("(i)"), Flags(),
                         kUnlimited, cancellable.get(), &OnReply, &call);
  std::exception_ptr failure;
  try {
    loop->Run();
  } catch (...) {
    failure = std::current_exception();
  }
  // The callback refers to this frame.
  g_cancellable_cancel(cancellable.get());
  while (!call.reply && !call.error) g_main_context_iteration(nullptr, TRUE);
  if (failure) std::rethrow_exception(failure);
  if (!call.reply) {
    if (loop->is_interrupted()) return std::nullopt;
    Throw(std::move(call.error));
  }
  gint32 result = 0;
  g_variant_get(call.reply.get(), "(i)", &result);
  return result;
}

void Daemon::OnCompileDone(EventLoop* loop, std::function<void(const std::string&)> action) {
  loop_ = loop;
  on_compile_done_ = std::move(action);
  subscription_ = g_dbus_connection_signal_subscribe(
      connection_.get(), kBusName, kInterfaceName, kCompileDoneSignal, kObjectPath, nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* body,
         gpointer data) {
        Daemon& self = *static_cast<Daemon*>(data);
        if (!g_variant_is_of_type(body, G_VARIANT_TYPE("(s)"))) return;
        const char* package = nullptr;
        g_variant_get(body, "(&s)", &package);
        self.loop_->Guard([&] { self.on_compile_done_(package); });
      },
      this, nullptr);
  FindProcess();  // comes back behind the subscription: from here on no signal is missed
}

void Daemon::OnPresence(EventLoop* loop, std::function<void(bool)> action) {
  loop_ = loop;
  on_presence_ = std::move(action);
  watch_ = g_bus_watch_name_on_connection(
      connection_.get(), kBusName, G_BUS_NAME_WATCHER_FLAGS_NONE,
      [](GDBusConnection*, const char*, const char*, gpointer data) {
        Daemon& self = *static_cast<Daemon*>(data);
        self.loop_->Guard([&] { self.on_presence_(true); });
      },
      [](GDBusConnection* connection, const char*, gpointer data) {
        Daemon& self = *static_cast<Daemon*>(data);
        self.loop_->Guard([&] {
          if (connection == nullptr) throw Error(kUnreachable, "the system bus has ended", "");
          self.on_presence_(false);
        });
      },
      this, nullptr);
}

GVariantPtr Daemon::Call(const char* method, GVariant* arguments, const char* reply_type,
                         int timeout_ms) const {
  GError* error = nullptr;
  GVariantPtr reply(g_dbus_connection_call_sync(
      connection_.get(), kBusName, kObjectPath, kInterfaceName, method, arguments,
      G_VARIANT_TYPE(reply_type), Flags(), timeout_ms, nullptr, &error));
  if (!reply) Throw(GErrorPtr(error));
  return reply;
}

int Daemon::Change(const char* method, GVariant* arguments, int timeout_ms) const {
  gint32 result = 0;
  g_variant_get(Call(method, arguments, "(i)", timeout_ms).get(), "(i)", &result);
  return result;
}

bool Daemon::Ask(const char* method, const std::string& package) const {
  gboolean answer = FALSE;
  g_variant_get(Call(method, Id(package), "(b)", kQuickMs).get(), "(b)", &answer);
  return answer != FALSE;
}

GDBusCallFlags Daemon::Flags() const {
  return activation_ == Activation::kAllowed ? G_DBUS_CALL_FLAGS_NONE
                                             : G_DBUS_CALL_FLAGS_NO_AUTO_START;
}

void Daemon::Throw(GErrorPtr error) const {
  const GCharPtr remote(g_dbus_error_get_remote_error(error.get()));
  const std::string name = remote ? remote.get() : "";
  g_dbus_error_strip_remote_error(error.get());
  const std::string message = error->message;
  if (IsDBusError(*error, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
      IsDBusError(*error, G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
    throw NotRunning(kUnreachable, "the daemon does not run", kStartAdvice);
  }
  if (name.rfind("org.freedesktop.DBus.Error.Spawn.", 0) == 0) {
    throw Error(kUnreachable, "the bus cannot start the daemon: " + message,
                "its log says why: journalctl -u vorna");
  }
  if (IsDBusError(*error, G_DBUS_ERROR_ACCESS_DENIED)) {
    throw Error(kNotPermitted, "this user may not ask the daemon for this",
                "run it as root, or as a member of the group vorna");
  }
  if (IsDBusError(*error, G_DBUS_ERROR_NO_REPLY)) {
    throw Error(kUnreachable, "the daemon ended before it answered",
                "what was queued is kept; see 'vornactl status --activate'");
  }
  if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_TIMED_OUT)) {
    throw Error(kUnreachable, "the daemon does not answer",
                "its log may say why: journalctl -u vorna");
  }
  throw Error(kUnreachable, "the daemon cannot be asked: " + message, "");
}

}  // namespace vornactl
