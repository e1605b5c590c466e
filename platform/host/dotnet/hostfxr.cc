// SPDX-License-Identifier: MIT
#include "dotnet/hostfxr.h"

#include <dlfcn.h>
#include <limits.h>
#include <nethost.h>

#include <algorithm>
#include <utility>

#include "base/text.h"

namespace host {

struct HostfxrFunctions {
  std::string library;
  hostfxr_initialize_for_runtime_config_fn initialize_for_runtime_config;
  hostfxr_initialize_for_dotnet_command_line_fn initialize_for_command_line;
  hostfxr_get_runtime_property_value_fn get_property;
  hostfxr_set_runtime_property_value_fn set_property;
  hostfxr_run_app_fn run_app;
  hostfxr_close_fn close;
  hostfxr_set_error_writer_fn set_error_writer;
};

namespace {

std::mutex context_mutex;

// What the runtime says about its own failures, instead of its writing to standard error.
thread_local std::string messages;

void CollectMessage(const char* message) {
  if (!messages.empty()) messages += ' ';
  messages += message;
}

template <typename Function>
void FindSymbol(void* library, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(library, name));
  if (*function == nullptr) throw HostfxrError(std::string("hostfxr has no ") + name);
}

HostfxrFunctions LoadHostfxr() {
  char path[PATH_MAX];
  size_t size = sizeof path;
  if (const int error = get_hostfxr_path(path, &size, nullptr)) {
    throw HostfxrError(
        Format("no .NET runtime is installed (hostfxr: 0x%08x)", static_cast<unsigned>(error)));
  }
  // Never unloaded: it keeps threads' state of its own.
  void* library = dlopen(path, RTLD_LAZY | RTLD_LOCAL);
  if (library == nullptr) throw HostfxrError(dlerror());
  HostfxrFunctions functions;
  functions.library = path;
  FindSymbol(library, "hostfxr_initialize_for_runtime_config",
             &functions.initialize_for_runtime_config);
  FindSymbol(library, "hostfxr_initialize_for_dotnet_command_line",
             &functions.initialize_for_command_line);
  FindSymbol(library, "hostfxr_get_runtime_property_value", &functions.get_property);
  FindSymbol(library, "hostfxr_set_runtime_property_value", &functions.set_property);
  FindSymbol(library, "hostfxr_run_app", &functions.run_app);
  FindSymbol(library, "hostfxr_close", &functions.close);
  FindSymbol(library, "hostfxr_set_error_writer", &functions.set_error_writer);
  return functions;
}

void Check(int32_t status, const std::string& what) {
  if (status >= 0) return;  // positive: a success with a remark
  const std::string reason =
      messages.empty() ? Format("hostfxr: 0x%08x", static_cast<unsigned>(status)) : messages;
  throw HostfxrError(what + ": " + reason);
}

// The installation that the library belongs to: <root>/host/fxr/<version>/libhostfxr.so.
std::string RootOf(std::string library) {
  for (int level = 0; level < 4; ++level) library.resize(library.rfind('/'));
  return library;
}

}  // namespace

HostfxrContext::HostfxrContext() : lock_(context_mutex) {
  static const HostfxrFunctions functions = LoadHostfxr();
  functions_ = &functions;
  root_ = RootOf(functions.library);
  messages.clear();
  functions_->set_error_writer(&CollectMessage);
}

HostfxrContext::HostfxrContext(HostfxrContext&& other) noexcept
    : lock_(std::move(other.lock_)),
      root_(std::move(other.root_)),
      functions_(other.functions_),
      handle_(std::exchange(other.handle_, nullptr)) {}

HostfxrContext::~HostfxrContext() {
  if (!lock_) return;  // moved from
  if (handle_ != nullptr) functions_->close(handle_);
  functions_->set_error_writer(nullptr);
}

HostfxrContext HostfxrContext::ForRuntimeConfig(const std::string& path) {
  HostfxrContext context;
  const hostfxr_initialize_parameters parameters = {sizeof parameters, nullptr,
                                                    context.root_.c_str()};
  Check(context.functions_->initialize_for_runtime_config(path.c_str(), &parameters,
                                                          &context.handle_),
        "the runtime does not resolve the frameworks");
  return context;
}

HostfxrContext HostfxrContext::ForCommandLine(const std::vector<std::string>& command_line) {
  HostfxrContext context;
  std::vector<const char*> arguments;
  arguments.reserve(command_line.size());
  for (const std::string& argument : command_line) arguments.push_back(argument.c_str());
  const hostfxr_initialize_parameters parameters = {sizeof parameters, nullptr,
                                                    context.root_.c_str()};
  Check(context.functions_->initialize_for_command_line(
            static_cast<int>(arguments.size()), arguments.data(), &parameters, &context.handle_),
        "the runtime does not take the application");
  return context;
}

std::string HostfxrContext::Property(const char* name) const {
  const char* value = nullptr;
  Check(functions_->get_property(handle_, name, &value), name);
  return value;
}

void HostfxrContext::SetProperty(const char* name, const std::string& value) {
  Check(functions_->set_property(handle_, name, value.c_str()), name);
}

int HostfxrContext::RunApplication() {
  functions_->set_error_writer(nullptr);  // from here on messages are the application's user's
  return functions_->run_app(handle_);
}

std::vector<std::string> SplitPathList(const std::string& list) {
  std::vector<std::string> entries;
  for (size_t begin = 0; begin < list.size();) {
    const size_t end = std::min(list.find(':', begin), list.size());
    if (end > begin) entries.push_back(list.substr(begin, end - begin));
    begin = end + 1;
  }
  return entries;
}

}  // namespace host
