// SPDX-License-Identifier: MIT
#include "base/text.h"

#include <glib.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>

namespace host {

std::string Format(const char* format, ...) {
  char* text = nullptr;
  va_list arguments;
  va_start(arguments, format);
  const int length = vasprintf(&text, format, arguments);
  va_end(arguments);
  if (length < 0) return {};
  const std::unique_ptr<char, decltype(&free)> owner(text, &free);
  return std::string(text, static_cast<size_t>(length));
}

std::string ErrorText(int error) {
  return std::generic_category().message(error);
}

std::string Visible(std::string_view text) {
  std::string visible;
  visible.reserve(text.size());
  while (!text.empty()) {
    const gunichar character =
        g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
    const bool valid = character < 0x110000;
    const size_t length =
        valid ? static_cast<size_t>(g_utf8_skip[static_cast<guchar>(text[0])]) : 1;
    if (valid && !g_unichar_iscntrl(character)) {
      visible.append(text.substr(0, length));
    } else if (text[0] == '\n') {
      visible += "\\n";
    } else if (text[0] == '\t') {
      visible += "\\t";
    } else {
      for (const char byte : text.substr(0, length)) {
        visible += Format("\\x%02x", static_cast<unsigned char>(byte));
      }
    }
    text.remove_prefix(length);
  }
  return visible;
}

bool IsValidUtf8(std::string_view text) {
  return g_utf8_validate_len(text.data(), text.size(), nullptr) != FALSE;
}

bool EndsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

}  // namespace host
