#include "host/console.h"

#include <cstdio>

namespace MELDO_GLOBAL::host {

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
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
  }
}

}  // namespace MELDO_GLOBAL::host
