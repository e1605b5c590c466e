// SPDX-License-Identifier: MIT
// The daemon as the bus shows it: one typed function a method, its signal, and its coming and
// going. Results are the daemon's own numbers; everything else that goes wrong is thrown as Error.
// One thread. Calls wait for their answer; only Compile lets the loop run meanwhile.
#ifndef TOOLS_VORNACTL_DAEMON_H
#define TOOLS_VORNACTL_DAEMON_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "common/glib_ptr.h"
#include "event_loop.h"

namespace vornactl {

struct DaemonStatus {
  std::string front;  // of the queue; empty when that is
  int queue_length = 0;
  bool is_paused = false;
  int worker = 0;  // vorna_thread_statuses

  bool operator==(const DaemonStatus&) const = default;
};

struct PackageStatus {
  int result = 0;
  int status = 0;  // vorna_package_statuses
};

class Daemon {
 public:
  // Whether a call may have the bus start the daemon.
  enum class Activation { kAllowed, kNever };

  explicit Daemon(Activation activation);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  // The process that owns the name; nothing when nobody does. Never starts the daemon.
  std::optional<uint32_t> FindProcess() const;
  void StartNoMore() { activation_ = Activation::kNever; }

  DaemonStatus Status() const;
  PackageStatus StatusOf(const std::string& package) const;
  bool IsQueued(const std::string& package) const;
  bool IsHighLaunchPriority(const std::string& package) const;

  int Add(const std::string& package) const;
  int Remove(const std::string& package) const;
  int Pause() const;
  int Resume() const;
  int SetPriority(int nice) const;
  int EnableCpuLog(bool enable) const;
  int EnableCpuGate(bool enable) const;
  int CleanQueue() const;
  int CleanPackage(const std::string& package) const;
  // Nothing when the loop was interrupted; the daemon goes on then.
  std::optional<int> Compile(const std::string& package, EventLoop* loop) const;

  // Called in the loop from now on, as long as this object lives. Each may be set once.
  void OnCompileDone(EventLoop* loop, std::function<void(const std::string& package)> action);
  // Once at the beginning, then with each change.
  void OnPresence(EventLoop* loop, std::function<void(bool is_running)> action);

 private:
  GVariantPtr Call(const char* method, GVariant* arguments, const char* reply_type,
                   int timeout_ms) const;
  int Change(const char* method, GVariant* arguments, int timeout_ms) const;
  bool Ask(const char* method, const std::string& package) const;
  GDBusCallFlags Flags() const;
  [[noreturn]] void Throw(GErrorPtr error) const;

  Activation activation_;
  GObjectPtr<GDBusConnection> connection_;
  guint subscription_ = 0;
  guint watch_ = 0;
  EventLoop* loop_ = nullptr;
  std::function<void(const std::string&)> on_compile_done_;
  std::function<void(bool)> on_presence_;
};

}  // namespace vornactl

#endif
