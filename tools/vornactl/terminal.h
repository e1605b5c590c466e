// SPDX-License-Identifier: MIT
// What vornactl says: answers on standard output, notes and errors on standard error. Ids and
// causes come from strangers and are made visible before they are shown. One thread.
#ifndef TOOLS_VORNACTL_TERMINAL_H
#define TOOLS_VORNACTL_TERMINAL_H

#include <chrono>
#include <string>

namespace vornactl {

// One line of an answer; flushed, in order with standard error.
void Say(const std::string& text);
void Note(const std::string& text);
void Complain(const std::string& text, const std::string& advice = {});

// Colours are used on a terminal that has them, unless switched off by option or by NO_COLOR.
enum class Colour { kBold, kGood, kWarning, kBad };
void ForbidColours();
std::string Coloured(Colour colour, const std::string& text);

// A question on the terminal; anything but a yes is a no.
bool Confirm(const std::string& question);

// "3 packages", "1 package"
std::string Count(size_t number, const std::string& thing);
// "8.5 s", "2 min 5 s"
std::string Elapsed(std::chrono::steady_clock::duration time);
// Not more columns than these; what is left out shows as "…".
std::string Cut(const std::string& text, size_t columns);
size_t TerminalColumns(int terminal);

// One line on standard error that is rewritten in place, and gone with its owner. Nothing where
// that is no terminal.
class ProgressLine {
 public:
  ProgressLine();
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  bool is_shown() const { return is_shown_; }
  void Show(const std::string& text);
  void Clear();

 private:
  bool is_shown_;
};

}  // namespace vornactl

#endif
