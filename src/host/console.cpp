#include "host/console.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace MELDO_GLOBAL::host {

namespace {

/// The bytes of the character of several bytes that begins here; 0 where none does.
std::size_t CharacterLength(std::string_view text) {
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const std::size_t length = at(0) >= 0xF0 && at(0) < 0xF5   ? 4
                             : at(0) >= 0xE0 && at(0) < 0xF0 ? 3
                             : at(0) >= 0xC2 && at(0) < 0xE0 ? 2
                                                             : 0;
  if (length == 0 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i)
    if ((at(i) & 0xC0) != 0x80) return 0;
  // Between 0x80 and 0x9F stand control characters too.
  return length == 2 && at(0) == 0xC2 && at(1) < 0xA0 ? 0 : length;
}

}  // namespace

std::string Escaped(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    std::size_t length = c >= 0x20 && c < 0x7F ? 1 : 0;
    if (c >= 0x80) length = CharacterLength(text.substr(i));
    if (length == 0) out += fmt::format("\\x{:02x}", c);
    out += text.substr(i, length);
    i += std::max<std::size_t>(length, 1);
  }
  return out;
}

Console& TheConsole() {
  static Console console;
  return console;
}

void ShowStatus(std::string_view text) {
  if (TheConsole().status) TheConsole().status(text);
}

void ClearStatus() { ShowStatus({}); }

void Print(std::string_view text) {
  if (TheConsole().print) {
    TheConsole().print(text);
  } else {
    std::fprintf(stderr, "%s\n", Escaped(text).c_str());
  }
}

}  // namespace MELDO_GLOBAL::host
