// SPDX-License-Identifier: MIT
#include "terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "base/text.h"

namespace vornactl {
namespace {

constexpr size_t kUsualColumns = 80;
constexpr char kClearLine[] = "\r\033[K";

bool colours_are_forbidden = false;

bool HasColours() {
  static const bool has_them = [] {
    const char* no_colour = getenv("NO_COLOR");
    const char* terminal = getenv("TERM");
    return (no_colour == nullptr || *no_colour == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb" && isatty(STDOUT_FILENO) != 0;
  }();
  return has_them && !colours_are_forbidden;
}

const char* SequenceOf(Colour colour) {
  switch (colour) {
    case Colour::kBold:
      return "\033[1m";
    case Colour::kGood:
      return "\033[32m";
    case Colour::kWarning:
      return "\033[33m";
    default:
      return "\033[31m";
  }
}

bool BeginsCharacter(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

}  // namespace

void Say(const std::string& text) {
  printf("%s\n", text.c_str());
  fflush(stdout);
}

void Note(const std::string& text) {
  fprintf(stderr, "vornactl: %s\n", host::Visible(text).c_str());
}

void Complain(const std::string& text, const std::string& advice) {
  Note(advice.empty() ? text : text + "; " + advice);
}

void ForbidColours() {
  colours_are_forbidden = true;
}

std::string Coloured(Colour colour, const std::string& text) {
  return HasColours() ? SequenceOf(colour) + text + "\033[0m" : text;
}

bool Confirm(const std::string& question) {
  fprintf(stderr, "%s [y/N] ", question.c_str());
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

std::string Count(size_t number, const std::string& thing) {
  return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

std::string Elapsed(std::chrono::steady_clock::duration time) {
  const double seconds = std::chrono::duration<double>(time).count();
  if (seconds < 60) return host::Format("%.1f s", seconds);
  const int whole = static_cast<int>(seconds);
  return host::Format("%d min %d s", whole / 60, whole % 60);
}

std::string Cut(const std::string& text, size_t columns) {
  size_t shown = 0;
  size_t last = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (!BeginsCharacter(text[i])) continue;
    if (++shown < columns) last = i;
    if (shown > columns) return text.substr(0, last) + "…";
  }
  return text;
}

size_t TerminalColumns(int terminal) {
  winsize size = {};
  const bool is_known = ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return is_known ? size.ws_col : kUsualColumns;
}

ProgressLine::ProgressLine() : is_shown_(isatty(STDERR_FILENO) != 0) {}

ProgressLine::~ProgressLine() {
  Clear();
}

void ProgressLine::Show(const std::string& text) {
  if (!is_shown_) return;
  const std::string line = Cut(host::Visible(text), TerminalColumns(STDERR_FILENO) - 1);
  fprintf(stderr, "%s%s", kClearLine, line.c_str());
}

void ProgressLine::Clear() {
  if (is_shown_) fputs(kClearLine, stderr);
}

}  // namespace vornactl
