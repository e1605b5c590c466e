// SPDX-License-Identifier: MIT
#include "event_loop.h"

#include <glib-unix.h>
#include <signal.h>

#include <utility>

#include "exit_status.h"

namespace vornactl {

EventLoop::EventLoop() : loop_(g_main_loop_new(nullptr, FALSE)) {
  sources_.push_back(g_unix_signal_add(SIGINT, &EventLoop::OnInterrupt, this));
  sources_.push_back(g_unix_signal_add(SIGTERM, &EventLoop::OnTerminate, this));
}

EventLoop::~EventLoop() {
  for (const guint source : sources_) g_source_remove(source);
}

void EventLoop::Run() {
  if (!failure_ && !is_interrupted()) g_main_loop_run(loop_.get());
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
}

int EventLoop::ExitStatus() const {
  return kSignalBase + signal_;
}

void EventLoop::Every(unsigned milliseconds, Action action) {
  timers_.push_back({this, std::move(action)});
  sources_.push_back(g_timeout_add(milliseconds, &EventLoop::OnTimer, &timers_.back()));
}

void EventLoop::Guard(const Action& action) {
  try {
    action();
  } catch (...) {
    failure_ = std::current_exception();
    Quit();
  }
}

gboolean EventLoop::OnInterrupt(gpointer loop) {
  static_cast<EventLoop*>(loop)->Interrupt(SIGINT);
  return G_SOURCE_CONTINUE;
}

gboolean EventLoop::OnTerminate(gpointer loop) {
  static_cast<EventLoop*>(loop)->Interrupt(SIGTERM);
  return G_SOURCE_CONTINUE;
}

gboolean EventLoop::OnTimer(gpointer timer) {
  const Timer* self = static_cast<Timer*>(timer);
  self->loop->Guard(self->action);
  return G_SOURCE_CONTINUE;
}

void EventLoop::Interrupt(int signal) {
  signal_ = signal;
  Quit();
}

}  // namespace vornactl
