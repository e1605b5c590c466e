// SPDX-License-Identifier: MIT
// A bus service under measurement: started as a child, with its log thrown away, and looked at
// through /proc. One thread, the one that iterates the default main context.
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <string>

namespace bench {

class ServiceProcess {
 public:
  // Returns when the service owns its name; ends the program when it ends before that.
  ServiceProcess(GDBusConnection* bus, const char* executable, const char* bus_name);
  ~ServiceProcess();  // kills it: what an orderly end takes is no part of any figure
  ServiceProcess(const ServiceProcess&) = delete;
  ServiceProcess& operator=(const ServiceProcess&) = delete;

  const char* bus_name() const { return bus_name_; }
  double seconds_to_name() const { return seconds_to_name_; }

  // The sum of these fields of /proc/PID/smaps_rollup, in MiB.
  double memory(std::initializer_list<const char*> fields) const;
  // Processor time used by the threads that it has now.
  double cpu_seconds() const;
  // How often a thread of the process has gone to sleep, and thus been woken.
  long voluntary_context_switches() const;

 private:
  const char* bus_name_;
  pid_t pid_ = -1;
  double seconds_to_name_ = 0;
};

}  // namespace bench
