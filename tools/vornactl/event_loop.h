// SPDX-License-Identifier: MIT
// The main loop of a command that waits. SIGINT and SIGTERM end a wait instead of the process, so
// that the terminal is left tidy and the user is told what goes on. One thread, one loop at a time.
#ifndef TOOLS_VORNACTL_EVENT_LOOP_H
#define TOOLS_VORNACTL_EVENT_LOOP_H

#include <glib.h>

#include <exception>
#include <functional>
#include <list>
#include <memory>
#include <vector>

namespace vornactl {

class EventLoop {
 public:
  using Action = std::function<void()>;

  EventLoop();
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Until Quit, or a signal. Rethrows what an action threw.
  void Run();
  void Quit() { g_main_loop_quit(loop_.get()); }
  bool is_interrupted() const { return signal_ != 0; }
  // What an interrupted command ends with.
  int ExitStatus() const;

  // Repeats the action as long as the loop lives.
  void Every(unsigned milliseconds, Action action);
  // For callbacks from C: an exception ends Run.
  void Guard(const Action& action);

 private:
  struct Timer {
    EventLoop* loop;
    Action action;
  };
  struct LoopUnref {
    void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
  };
  static gboolean OnInterrupt(gpointer loop);
  static gboolean OnTerminate(gpointer loop);
  static gboolean OnTimer(gpointer timer);
  void Interrupt(int signal);

  std::unique_ptr<GMainLoop, LoopUnref> loop_;
  std::list<Timer> timers_;
  std::vector<guint> sources_;
  std::exception_ptr failure_;
  int signal_ = 0;
};

}  // namespace vornactl

#endif
