// Where a text that a node holds was read from.
#pragma once
#include <string>
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::host {

/// The file of a text, and the line in it of each of the text's lines.
struct TextOrigin {
  std::string file;        ///< empty for a text that no file holds
  std::vector<u32> lines;  ///< none: the file holds the text alone, line by line

  bool IsWholeFile() const { return !file.empty() && lines.empty(); }
  /// The line of the file for line `line` of the text, counted from 1; 0 for 0.
  u32 LineOf(u32 line) const {
    if (lines.empty() || line == 0) return line;
    return lines[line <= lines.size() ? line - 1 : lines.size() - 1];
  }
};

}  // namespace MELDO_GLOBAL::host
