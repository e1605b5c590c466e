// SPDX-License-Identifier: MIT
// Scripts the platform double from within a unit test: results by function and first argument, and
// the log that the code under test has written.
#ifndef TESTS_SUPPORT_SCRIPT_H
#define TESTS_SUPPORT_SCRIPT_H

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform_double.h"

// In force as long as it lives; one at a time. Any thread.
class Script {
 public:
  Script() {
    platform_double::SetHook([this](const platform_double::Call& call) { return Note(call); });
  }
  ~Script() { platform_double::SetHook({}); }
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;

  void Result(const std::string& function, const std::string& first_argument, int result) {
    std::lock_guard lock(mutex_);
    results_[{function, first_argument}] = result;
  }
  // The arguments of every call of a function, in order.
  std::vector<std::vector<std::string>> Calls(const std::string& function) {
    std::lock_guard lock(mutex_);
    return calls_[function];
  }
  // How many log lines hold the text.
  int Count(const std::string& text) {
    std::lock_guard lock(mutex_);
    return CountLocked(text);
  }
  void WaitForLog(const std::string& text, int times = 1) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return CountLocked(text) >= times; });
  }

 private:
  platform_double::Answer Note(const platform_double::Call& call) {
    std::lock_guard lock(mutex_);
    calls_[call.function].push_back(call.arguments);
    changed_.notify_all();
    const std::string first = call.arguments.empty() ? "" : call.arguments[0];
    const auto scripted = results_.find({call.function, first});
    return {scripted == results_.end() ? 0 : scripted->second, {}};
  }
  int CountLocked(const std::string& text) {
    int found = 0;
    for (const auto& line : calls_["log_print"]) found += line[2].find(text) != std::string::npos;
    return found;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::string, std::vector<std::vector<std::string>>> calls_;
  std::map<std::pair<std::string, std::string>, int> results_;
};

#endif
