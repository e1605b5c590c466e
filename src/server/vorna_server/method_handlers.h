// SPDX-License-Identifier: MIT
// One class for each bus method but PerformPackageAOT: reads the arguments, performs one operation,
// holds what the reply needs besides the result. An object serves one call.
// Entered by: the method-call pool, several objects at once. No state is shared.
#pragma once

#include <glib.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string_view>

#include "common/vorna_error.h"
#include "server/thread_manager/thread_statuses.h"
#include "server/vorna_interface/package_status.h"

class DbusMethodHandler {
 public:
  // Performs the call. The uid of the caller, -1 if unknown, is only for the log.
  virtual vorna_error executeHandler(GVariant* parameters, unsigned int sender_uid) = 0;
  // The reply, as a floating tuple.
  virtual GVariant* createReturnValue(vorna_error result);
  virtual ~DbusMethodHandler() = default;
};

class AOTDaemonProcessHandler : public DbusMethodHandler {
 public:
  vorna_error executeHandler(GVariant* parameters, unsigned int sender_uid) override;
};

// The methods whose one argument is a package id.
class PackageMethodHandler : public DbusMethodHandler {
 public:
  vorna_error executeHandler(GVariant* parameters, unsigned int sender_uid) final;

 private:
  virtual vorna_error perform(const char* package_id) = 0;
};

class AddPackageHandler : public PackageMethodHandler {
  vorna_error perform(const char* package_id) override;
};

class RemovePackageHandler : public PackageMethodHandler {
  vorna_error perform(const char* package_id) override;
};

class GetAOTDaemonStatusHandler : public DbusMethodHandler {
 public:
  vorna_error executeHandler(GVariant* parameters, unsigned int sender_uid) override;
  GVariant* createReturnValue(vorna_error result) override;

 private:
  struct Free {
    void operator()(char* memory) const { std::free(memory); }
  };
  std::unique_ptr<char, Free> current_package_;
  std::int32_t queue_size_ = 0;
  bool is_paused_ = false;
  std::int32_t thread_status_ = THREAD_STATUS_IDLE;
};

class GetPackageAOTStatusHandler : public PackageMethodHandler {
 public:
  GVariant* createReturnValue(vorna_error result) override;

 private:
  vorna_error perform(const char* package_id) override;

  vorna_package_statuses package_status_ = PACKAGE_STATUS_NOT_TARGET;
};

class SetAOTDaemonPriorityHandler : public DbusMethodHandler {
 public:
  vorna_error executeHandler(GVariant* parameters, unsigned int sender_uid) override;
};

// The methods that answer with a boolean alone; their result code is seen only in the log.
class BooleanAnswerHandler : public PackageMethodHandler {
 public:
  GVariant* createReturnValue(vorna_error result) override;

 protected:
  bool answer_ = false;
};

class IsPackageHighLaunchPriorityHandler : public BooleanAnswerHandler {
  vorna_error perform(const char* package_id) override;
};

class IsPackageInAOTQueueHandler : public BooleanAnswerHandler {
  vorna_error perform(const char* package_id) override;
};

class EnableCPUUsageLoggingHandler : public DbusMethodHandler {
 public:
  vorna_error executeHandler(GVariant* parameters, unsigned int sender_uid) override;
};

class EnableCPUUsageMonitoringHandler : public DbusMethodHandler {
 public:
  vorna_error executeHandler(GVariant* parameters, unsigned int sender_uid) override;
};

class CleanAOTQueueHandler : public DbusMethodHandler {
 public:
  vorna_error executeHandler(GVariant* parameters, unsigned int sender_uid) override;
};

class CleanAOTInPackageHandler : public PackageMethodHandler {
  vorna_error perform(const char* package_id) override;
};

// A new handler for a method; null for a method that has none.
std::unique_ptr<DbusMethodHandler> make_method_handler(std::string_view method_name);
