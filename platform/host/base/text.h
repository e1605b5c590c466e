// SPDX-License-Identifier: MIT
// Text for people: formatting, and making bytes that strangers chose safe to show on one line.
// Pure functions; any thread.
#ifndef PLATFORM_HOST_BASE_TEXT_H
#define PLATFORM_HOST_BASE_TEXT_H

#include <string>
#include <string_view>

namespace host {

// As printf.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The message of an errno value.
std::string ErrorText(int error);

// Valid UTF-8 on one line: control characters and stray bytes become \n, \t, \xNN.
std::string Visible(std::string_view text);

bool IsValidUtf8(std::string_view text);
bool EndsWith(std::string_view text, std::string_view suffix);

}  // namespace host

#endif
