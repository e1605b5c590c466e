// SPDX-License-Identifier: MIT
// The daemon as a bus service beside a minimal one: method calls, start, and what both cost when
// idle. Run by scripts/bench on a private bus:
//
//   bus_benchmark DAEMON MINIMAL_SERVICE
#include <gio/gio.h>

#include <cstdlib>

#include "bench/comparison.h"
#include "bench/service_process.h"

namespace {

using bench::Comparison;
using bench::ServiceProcess;

constexpr char kDaemonName[] = "org.kivor.vorna";
constexpr char kMinimalName[] = "org.kivor.vorna.minimal";
constexpr char kPath[] = "/org/kivor/vorna";
constexpr char kInterface[] = "org.kivor.vorna";

constexpr int kCallRounds = 400;
constexpr int kCallsARound = 25;
constexpr int kBatchRounds = 20;
constexpr int kCallsABatch = 500;
constexpr int kCallsInFlight = 8;
constexpr int kStarts = 61;
constexpr int kIdleSeconds = 20;

GVariant* package_argument() {
  return g_variant_new("(s)", "org.example.almanac");
}

void call(GDBusConnection* bus, const char* name, const char* method, GVariant* arguments) {
  GError* error = nullptr;
  GVariant* reply =
      g_dbus_connection_call_sync(bus, name, kPath, kInterface, method, arguments, nullptr,
                                  G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  if (reply == nullptr) g_error("%s of %s: %s", method, name, error->message);
  g_variant_unref(reply);
}

// A number of calls with several of them in flight all the time.
class Batch {
 public:
  Batch(GDBusConnection* bus, const char* name) : bus_(bus), name_(name) {}

  void run() {
    for (int i = 0; i < kCallsInFlight; ++i) send();
    while (answered_ < kCallsABatch) g_main_context_iteration(nullptr, TRUE);
  }

 private:
  void send() {
    ++sent_;
    g_dbus_connection_call(bus_, name_, kPath, kInterface, "IsPackageInAOTQueue",
                           package_argument(), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
                           on_reply, this);
  }

  static void on_reply(GObject* bus, GAsyncResult* result, gpointer batch) {
    GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, nullptr);
    if (reply == nullptr) g_error("a call got no answer");
    g_variant_unref(reply);
    auto* self = static_cast<Batch*>(batch);
    ++self->answered_;
    if (self->sent_ < kCallsABatch) self->send();
  }

  GDBusConnection* bus_;
  const char* name_;
  int sent_ = 0;
  int answered_ = 0;
};

void measure_round_trips(GDBusConnection* bus, const ServiceProcess& daemon,
                         const ServiceProcess& minimal) {
  const auto round_trips = [bus](const ServiceProcess& service) {
    std::vector<double> microseconds;
    for (int i = 0; i < kCallsARound; ++i) {
      microseconds.push_back(1e6 * bench::seconds_of([&] {
                               call(bus, service.bus_name(), "IsPackageInAOTQueue",
                                    package_argument());
                             }));
    }
    return bench::median(microseconds);
  };
  bench::print_row(
      "method call round trip", "us",
      bench::in_turn(
          kCallRounds, [&] { return round_trips(daemon); }, [&] { return round_trips(minimal); }),
      "<= 1.05");
}

void measure_throughput(GDBusConnection* bus, const ServiceProcess& daemon,
                        const ServiceProcess& minimal) {
  const double daemon_before = daemon.cpu_seconds();
  const double minimal_before = minimal.cpu_seconds();
  const auto calls_a_second = [bus](const ServiceProcess& service) {
    return kCallsABatch / bench::seconds_of([&] { Batch(bus, service.bus_name()).run(); });
  };
  bench::print_row("method calls, 8 in flight", "calls/s",
                   bench::in_turn(
                       kBatchRounds, [&] { return calls_a_second(daemon); },
                       [&] { return calls_a_second(minimal); }),
                   ">= 0.95");
  constexpr int kCalls = kBatchRounds * kCallsABatch;
  bench::print_row("processor time a call, of the service", "us",
                   1e6 * (daemon.cpu_seconds() - daemon_before) / kCalls,
                   1e6 * (minimal.cpu_seconds() - minimal_before) / kCalls, "");
}

void measure_start(GDBusConnection* bus, const char* daemon, const char* minimal) {
  bench::print_row(
      "start to owning the name", "ms",
      bench::in_turn(
          kStarts, [&] { return 1e3 * ServiceProcess(bus, daemon, kDaemonName).seconds_to_name(); },
          [&] { return 1e3 * ServiceProcess(bus, minimal, kMinimalName).seconds_to_name(); }),
      "<= 2");
}

// Both have answered thousands of calls before. Pausing keeps the daemon from its idle exit.
void measure_idle(GDBusConnection* bus, const ServiceProcess& daemon,
                  const ServiceProcess& minimal) {
  call(bus, kDaemonName, "AOTDaemonProcess", g_variant_new("(i)", 1));
  g_usleep(2 * G_USEC_PER_SEC);  // what the calls have set in motion comes to rest
  const long daemon_before = daemon.voluntary_context_switches();
  const long minimal_before = minimal.voluntary_context_switches();
  g_usleep(kIdleSeconds * G_USEC_PER_SEC);
  const auto a_second = [](long switches) { return static_cast<double>(switches) / kIdleSeconds; };
  bench::print_row("wake-ups when idle", "1/s",
                   a_second(daemon.voluntary_context_switches() - daemon_before),
                   a_second(minimal.voluntary_context_switches() - minimal_before), "ours < 1");
  bench::print_row("private memory when idle", "MiB",
                   daemon.memory({"Private_Clean", "Private_Dirty"}),
                   minimal.memory({"Private_Clean", "Private_Dirty"}), "ours <= 4");
  bench::print_row("proportional set size when idle", "MiB", daemon.memory({"Pss"}),
                   minimal.memory({"Pss"}), "");
  call(bus, kDaemonName, "AOTDaemonProcess", g_variant_new("(i)", 0));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: bus_benchmark DAEMON MINIMAL_SERVICE\n");
    return 2;
  }
  GError* error = nullptr;
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
  if (bus == nullptr) g_error("no bus: %s", error->message);

  measure_start(bus, argv[1], argv[2]);
  const ServiceProcess daemon(bus, argv[1], kDaemonName);
  const ServiceProcess minimal(bus, argv[2], kMinimalName);
  measure_round_trips(bus, daemon, minimal);
  measure_throughput(bus, daemon, minimal);
  measure_idle(bus, daemon, minimal);
}
