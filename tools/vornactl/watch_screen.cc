// SPDX-License-Identifier: MIT
#include "watch_screen.h"

#include <unistd.h>

#include "base/text.h"
#include "common/glib_ptr.h"
#include "terminal.h"

namespace vornactl {
namespace {

constexpr size_t kEventsShown = 10;

struct DateTimeUnref {
  void operator()(GDateTime* time) const { g_date_time_unref(time); }
};

std::string Now() {
  const std::unique_ptr<GDateTime, DateTimeUnref> now(g_date_time_new_now_utc());
  return GCharPtr(g_date_time_format(now.get(), "%Y-%m-%dT%H:%M:%SZ")).get();
}

}  // namespace

WatchScreen::WatchScreen(bool as_json)
    : as_json_(as_json), is_live_(!as_json && isatty(STDOUT_FILENO) != 0) {}

void WatchScreen::Show(const WatchEvent& event) {
  const std::string now = Now();
  if (as_json_) {
    nlohmann::ordered_json object = {{"time", now}};
    object.update(event.json);
    return Say(Dump(object));
  }
  const std::string line = now + " " + host::Visible(event.text);
  if (!is_live_) return Say(line);
  events_.push_back(line);
  if (events_.size() > kEventsShown) events_.pop_front();
}

void WatchScreen::Draw(const DaemonReport& report, const std::string& in_work_for) {
  if (!is_live_) return;
  std::vector<std::string> lines = ToLines(report);
  if (!in_work_for.empty()) lines.push_back("for         " + in_work_for);
  lines.push_back("");
  lines.insert(lines.end(), events_.begin(), events_.end());
  // Colours count as columns here: a line with one is short.
  const size_t columns = TerminalColumns(STDOUT_FILENO);
  if (drawn_lines_ > 0) printf("\033[%zuA", drawn_lines_);
  for (const std::string& line : lines) printf("\r\033[K%s\n", Cut(line, columns).c_str());
  printf("\033[J");
  fflush(stdout);
  drawn_lines_ = lines.size();
}

}  // namespace vornactl
