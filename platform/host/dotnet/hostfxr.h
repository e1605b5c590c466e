// SPDX-License-Identifier: MIT
// The runtime's own host library, found and loaded as the `dotnet` command finds it. Its functions
// keep state in the process: one context at a time, guarded here by a lock that a context holds.
// Any thread may open a context; the one that opened it closes it.
#ifndef PLATFORM_HOST_DOTNET_HOSTFXR_H
#define PLATFORM_HOST_DOTNET_HOSTFXR_H

#include <hostfxr.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace host {

// No runtime, or the runtime refuses; the message is the runtime's own where it has one.
class HostfxrError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct HostfxrFunctions;

class HostfxrContext {
 public:
  // A context that is only asked, for a runtime configuration file.
  static HostfxrContext ForRuntimeConfig(const std::string& path);
  // A context that runs an application: the path of its assembly, then its arguments.
  static HostfxrContext ForCommandLine(const std::vector<std::string>& command_line);

  HostfxrContext(HostfxrContext&&) noexcept;
  ~HostfxrContext();

  std::string Property(const char* name) const;
  void SetProperty(const char* name, const std::string& value);
  // Runs the application and returns its exit status.
  int RunApplication();

 private:
  HostfxrContext();

  std::unique_lock<std::mutex> lock_;
  std::string root_;
  const HostfxrFunctions* functions_;
  hostfxr_handle handle_ = nullptr;
};

// The entries of a list such as TRUSTED_PLATFORM_ASSEMBLIES.
std::vector<std::string> SplitPathList(const std::string& list);

}  // namespace host

#endif
