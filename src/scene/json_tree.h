// JSON with comments as a tree that knows the place of every key and value.
#pragma once
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "scene/diagnostics.h"

namespace MELDO_GLOBAL::app {

struct JsonMember;

/// A JSON value with the line and column of its first character.
struct JsonValue {
  using Array = std::vector<JsonValue>;
  using Object = std::vector<JsonMember>;

  std::variant<std::nullptr_t, bool, double, std::string, Array, Object> data;  ///< null at first
  u32 line = 0;
  u32 column = 0;

  bool IsNull() const { return std::holds_alternative<std::nullptr_t>(data); }
  const bool* Bool() const { return std::get_if<bool>(&data); }
  const double* Number() const { return std::get_if<double>(&data); }
  const std::string* Text() const { return std::get_if<std::string>(&data); }
  const Array* Items() const { return std::get_if<Array>(&data); }
  const Object* Members() const { return std::get_if<Object>(&data); }
  /// The value under a key of an object; null where there is none.
  const JsonValue* Find(std::string_view key) const;
};

/// A key of an object, with its place, and its value.
struct JsonMember {
  std::string key;
  u32 line = 0;
  u32 column = 0;
  JsonValue value;
};

/// Deepest nesting of arrays and objects that is read.
inline constexpr int kMaxJsonDepth = 128;

/// Parses `text` with `//` and `/* */` comments. `file` names it in messages.
/// False, with one message, on broken UTF-8, a syntax error, nesting deeper than kMaxJsonDepth or
/// text behind the value. A repeated key is an error too, but the first of them stands and all else
/// is read.
bool ParseJson(std::string_view text, const std::string& file, JsonValue& root,
               Diagnostics& diagnostics);

/// "a number", "text", "true or false", "a list", "an object" or "null", for messages.
std::string_view KindOf(const JsonValue& value);

}  // namespace MELDO_GLOBAL::app
