// SPDX-License-Identifier: MIT
#include "images/compiler_pool.h"

#include <poll.h>

#include <list>
#include <memory>
#include <vector>

#include "platform/watchdog.h"

namespace host {
namespace {

constexpr int kLookMs = 2000;  // how often a silent process is looked at

struct Running {
  size_t index;
  std::unique_ptr<CompilerProcess> process;
};

void AwaitEvent(const std::list<Running>& running) {
  std::vector<struct pollfd> events;
  for (const Running& one : running) {
    events.push_back({one.process->end_fd(), POLLIN, 0});
    events.push_back({one.process->output_fd(), POLLIN, 0});
  }
  poll(events.data(), events.size(), kLookMs);
}

}  // namespace

void RunCompilers(const CompilerTasks& tasks) {
  std::list<Running> running;  // whose destructors end what still runs when this returns
  size_t next = 0;
  while (next < tasks.count || !running.empty()) {
    while (next < tasks.count && running.size() < tasks.at_once) {
      running.push_back({next, std::make_unique<CompilerProcess>(tasks.command(next))});
      ++next;
    }
    for (auto one = running.begin(); one != running.end();) {
      const auto result = one->process->Poll();
      if (!result) {
        ++one;
        continue;
      }
      const Running ended = std::move(*one);
      one = running.erase(one);
      tarrow_watchdog_notify();  // fails, harmlessly, on a thread that is not registered
      if (!tasks.ended(ended.index, *result, ended.process->output())) return;
    }
    if (!running.empty() && (running.size() == tasks.at_once || next == tasks.count)) {
      AwaitEvent(running);
    }
  }
}

}  // namespace host
