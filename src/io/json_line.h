// Writing JSON text on one line.
#pragma once
#include <string>
#include <string_view>

#include "host/vector.h"

namespace MELDO_GLOBAL::app {

/// Builds one JSON value from left to right and sets the commas itself. Numbers are printed with
/// the fewest digits that read back to the same bits; JSON has no word for a number that isn't
/// finite, so one becomes null.
class JsonLine {
 public:
  JsonLine& Open(char bracket);   ///< '{' or '['
  JsonLine& Close(char bracket);  ///< '}' or ']'
  JsonLine& Key(std::string_view key);
  JsonLine& Number(double value);
  JsonLine& Number(f32 value);
  JsonLine& Number(i64 value);
  JsonLine& Bool(bool value);
  JsonLine& Text(std::string_view text);
  JsonLine& Vector(const Vec3d& v);
  JsonLine& Vector(const VecInt3D& v);
  const std::string& Str() const { return mText; }

 private:
  void Separate();
  void Quote(std::string_view text);

  std::string mText;
  bool mNeedsComma = false;
};

}  // namespace MELDO_GLOBAL::app
