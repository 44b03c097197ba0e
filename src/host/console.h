// What the host shows to its user: a status line and a console.
#pragma once
#include <functional>
#include <string>
#include <string_view>

namespace MELDO_GLOBAL::host {

/// Where the status line and console messages go; the defaults drop the status line and write
/// messages to standard error.
struct Console {
  std::function<void(std::string_view)> status;
  std::function<void(std::string_view)> print;
};
Console& TheConsole();

/// Text that may come from a file, as a terminal can be given it: control characters, and bytes
/// that are no UTF-8, become \xNN.
std::string Escaped(std::string_view text);

void ShowStatus(std::string_view text);
void ClearStatus();
void Print(std::string_view text);

}  // namespace MELDO_GLOBAL::host
