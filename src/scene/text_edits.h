// Changes to the text of a JSON file that leave all else in it as it is, comments too.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "scene/json_tree.h"

namespace MELDO_GLOBAL::app {

/// Places of values in a text, and edits at them. `text` must outlive this and be the one that the
/// values were read from.
class TextEdits {
 public:
  explicit TextEdits(std::string_view text);

  std::size_t Begin(const JsonValue& value) const;
  /// One behind a text, a list or an object.
  std::size_t End(const JsonValue& value) const;
  /// The text of a value, comments inside of it too.
  std::string Raw(const JsonValue& value) const;
  /// The spaces in front of a value's line.
  std::string IndentOf(const JsonValue& value) const;

  void Replace(const JsonValue& value, std::string by);
  /// Behind the bracket with which a list or an object begins.
  void InsertFirst(const JsonValue& value, std::string what);
  /// Behind an item of a list.
  void InsertBehind(const JsonValue& item, std::string what);
  /// Whole lines in front of the bracket with which a list ends.
  void InsertLines(const JsonValue& list, const std::string& lines);
  /// The text with all edits.
  std::string Apply();

 private:
  struct Edit {
    std::size_t begin, end;
    std::string by;
  };
  std::string_view mText;
  std::vector<std::size_t> mLines;
  std::vector<Edit> mEdits;
};

/// A text as JSON writes it, in quotes.
std::string Quoted(const std::string& text);

}  // namespace MELDO_GLOBAL::app
