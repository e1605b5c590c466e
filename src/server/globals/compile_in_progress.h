// SPDX-License-Identifier: MIT
// The package that is with the native-image library now, for whoever has to end its compiler.
// Entered by: the compiling thread and those that stop it. mutex_ guards the id; at most one
// package is compiled at a time.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <utility>

class CompileInProgress {
 public:
  std::optional<std::string> package_id() {
    const std::lock_guard lock(mutex_);
    return package_id_;
  }

  // Names the package for as long as it lives.
  class Scope {
   public:
    Scope(CompileInProgress& compile, const std::string& package_id) : compile_(compile) {
      compile_.set(package_id);
    }
    ~Scope() { compile_.set(std::nullopt); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    CompileInProgress& compile_;
  };

 private:
  void set(std::optional<std::string> package_id) {
    const std::lock_guard lock(mutex_);
    package_id_ = std::move(package_id);
  }

  std::mutex mutex_;
  std::optional<std::string> package_id_;
};
