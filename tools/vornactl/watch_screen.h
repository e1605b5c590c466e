// SPDX-License-Identifier: MIT
// Where watch shows what it sees: a block of lines that is drawn again in place on a terminal, one
// line or one JSON object for each event otherwise. One thread.
#ifndef TOOLS_VORNACTL_WATCH_SCREEN_H
#define TOOLS_VORNACTL_WATCH_SCREEN_H

#include <deque>
#include <nlohmann/json.hpp>
#include <string>

#include "status_report.h"

namespace vornactl {

struct WatchEvent {
  std::string text;
  nlohmann::ordered_json json;  // without the time
};

class WatchScreen {
 public:
  explicit WatchScreen(bool as_json);

  void Show(const WatchEvent& event);
  // The lines above the events. `in_work_for` is how long the package has been in work.
  void Draw(const DaemonReport& report, const std::string& in_work_for);

 private:
  bool as_json_;
  bool is_live_;
  std::deque<std::string> events_;
  size_t drawn_lines_ = 0;
};

}  // namespace vornactl

#endif
