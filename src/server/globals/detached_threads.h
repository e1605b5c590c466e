// SPDX-License-Identifier: MIT
// The threads that nobody joins: the queue worker and the PerformPackageAOT calls. They are
// counted, so that the end of the process can tell whether globals may be destroyed. Entered by:
// every thread. mutex_ guards the count.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

class DetachedThreads {
 public:
  // Runs body on a new thread. Throws std::system_error when no thread can be had.
  void start(std::function<void()> body);

  // True as soon as no such thread is left, false after the time-out.
  bool wait_until_none(std::chrono::nanoseconds timeout);

 private:
  void one_ended();

  std::mutex mutex_;
  std::condition_variable none_left_;
  int count_ = 0;
};
