// SPDX-License-Identifier: MIT
#include "server/vorna_server/method_handlers.h"

#include <cstring>
#include <map>
#include <string>

#include "common/glib_ptr.h"
#include "common/log.h"
#include "server/vorna_interface/daemon_commands.h"
#include "server/vorna_interface/queue_cleaning.h"
#include "server/vorna_interface/queue_operations.h"

namespace {

std::int32_t read_integer(GVariant* parameters) {
  gint32 value = 0;
  g_variant_get(parameters, "(i)", &value);
  return value;
}

bool read_flag(GVariant* parameters) {
  gboolean value = FALSE;
  g_variant_get(parameters, "(b)", &value);
  return value != FALSE;
}

template <typename Handler>
std::unique_ptr<DbusMethodHandler> make() {
  return std::make_unique<Handler>();
}

}  // namespace

GVariant* DbusMethodHandler::createReturnValue(vorna_error result) {
  return g_variant_new("(i)", result);
}

vorna_error AOTDaemonProcessHandler::executeHandler(GVariant* parameters, unsigned int sender_uid) {
  const std::int32_t command = read_integer(parameters);
  LOGD("process_command(%d), sender_uid(%d)", command, sender_uid);
  return aot_daemon_process(static_cast<vorna_daemon_process_command>(command));
}

vorna_error PackageMethodHandler::executeHandler(GVariant* parameters, unsigned int sender_uid) {
  const char* package_id = nullptr;
  g_variant_get(parameters, "(&s)", &package_id);
  if (package_id == nullptr) return VORNA_ERROR_INVALID_PARAMETER;
  LOGD("package_id(%s), sender_uid(%d)", package_id, sender_uid);
  return perform(package_id);
}

vorna_error AddPackageHandler::perform(const char* package_id) {
  return add_package_to_aot_queue(package_id);
}

vorna_error RemovePackageHandler::perform(const char* package_id) {
  return remove_package_from_aot_queue(package_id);
}

vorna_error GetAOTDaemonStatusHandler::executeHandler(GVariant*, unsigned int) {
  const DaemonStatus status = get_aot_daemon_status();
  current_package_.reset(strdup(status.current_package.c_str()));
  queue_size_ = status.queue_size;
  is_paused_ = status.is_paused;
  thread_status_ = status.thread_status;
  return VORNA_ERROR_NONE;
}

GVariant* GetAOTDaemonStatusHandler::createReturnValue(vorna_error) {
  return g_variant_new("(sibi)", to_bus_string(current_package_.get()).get(), queue_size_,
                       gboolean{is_paused_}, thread_status_);
}

vorna_error GetPackageAOTStatusHandler::perform(const char* package_id) {
  return get_package_aot_status(package_id, package_status_);
}

GVariant* GetPackageAOTStatusHandler::createReturnValue(vorna_error result) {
  return g_variant_new("(ii)", result, package_status_);
}

vorna_error SetAOTDaemonPriorityHandler::executeHandler(GVariant* parameters,
                                                        unsigned int sender_uid) {
  const std::int32_t priority = read_integer(parameters);
  LOGD("priority(%d), sender_uid(%d)", priority, sender_uid);
  return set_aot_daemon_priority(priority);
}

GVariant* BooleanAnswerHandler::createReturnValue(vorna_error) {
  return g_variant_new("(b)", gboolean{answer_});
}

vorna_error IsPackageHighLaunchPriorityHandler::perform(const char* package_id) {
  answer_ = is_package_high_launch_priority(package_id);
  return VORNA_ERROR_NONE;
}

vorna_error IsPackageInAOTQueueHandler::perform(const char* package_id) {
  answer_ = is_package_in_aot_queue(package_id);
  return VORNA_ERROR_NONE;
}

vorna_error EnableCPUUsageLoggingHandler::executeHandler(GVariant* parameters,
                                                         unsigned int sender_uid) {
  const bool flag = read_flag(parameters);
  LOGD("flag(%d), sender_uid(%d)", flag, sender_uid);
  enable_cpu_usage_logging(flag);
  return VORNA_ERROR_NONE;
}

vorna_error EnableCPUUsageMonitoringHandler::executeHandler(GVariant* parameters,
                                                            unsigned int sender_uid) {
  const bool flag = read_flag(parameters);
  LOGD("flag(%d), sender_uid(%d)", flag, sender_uid);
  enable_cpu_usage_monitoring(flag);
  return VORNA_ERROR_NONE;
}

vorna_error CleanAOTQueueHandler::executeHandler(GVariant*, unsigned int sender_uid) {
  LOGD("sender_uid(%d)", sender_uid);
  return clean_aot_queue();
}

vorna_error CleanAOTInPackageHandler::perform(const char* package_id) {
  return clean_aot_in_package(package_id);
}

std::unique_ptr<DbusMethodHandler> make_method_handler(std::string_view method_name) {
  using Factory = std::function<std::unique_ptr<DbusMethodHandler>()>;
  static const std::map<std::string, Factory, std::less<>> kHandlerFactories = {
      {"AOTDaemonProcess", make<AOTDaemonProcessHandler>},
      {"AddPackageToAOTQueue", make<AddPackageHandler>},
      {"RemovePackageFromAOTQueue", make<RemovePackageHandler>},
      {"GetAOTDaemonStatus", make<GetAOTDaemonStatusHandler>},
      {"GetPackageAOTStatus", make<GetPackageAOTStatusHandler>},
      {"SetAOTDaemonPriority", make<SetAOTDaemonPriorityHandler>},
      {"IsPackageHighLaunchPriority", make<IsPackageHighLaunchPriorityHandler>},
      {"IsPackageInAOTQueue", make<IsPackageInAOTQueueHandler>},
      {"EnableCPUUsageLogging", make<EnableCPUUsageLoggingHandler>},
      {"EnableCPUUsageMonitoring", make<EnableCPUUsageMonitoringHandler>},
      {"CleanAOTQueue", make<CleanAOTQueueHandler>},
      {"CleanAOTInPackage", make<CleanAOTInPackageHandler>},
  };
  const auto factory = kHandlerFactories.find(method_name);
  return factory == kHandlerFactories.end() ? nullptr : factory->second();
}
