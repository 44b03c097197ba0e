#include "io/json_line.h"

#include <fmt/format.h>

#include <cmath>

namespace MELDO_GLOBAL::app {

void JsonLine::Separate() {
  if (mNeedsComma) mText += ", ";
  mNeedsComma = true;
}

void JsonLine::Quote(std::string_view text) {
  mText += '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      mText += '\\';
      mText += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      mText += fmt::format("\\u{:04x}", static_cast<int>(c));
    } else {
      mText += c;
    }
  }
  mText += '"';
}

JsonLine& JsonLine::Open(char bracket) {
  Separate();
  mText += bracket;
  mNeedsComma = false;
  return *this;
}

JsonLine& JsonLine::Close(char bracket) {
  mText += bracket;
  mNeedsComma = true;
  return *this;
}

JsonLine& JsonLine::Key(std::string_view key) {
  Separate();
  Quote(key);
  mText += ": ";
  mNeedsComma = false;
  return *this;
}

JsonLine& JsonLine::Number(double value) {
  Separate();
  mText +=
      std::isfinite(value) ? fmt::format("{}", value + 0) : "null";  // + 0 drops the sign of -0
  return *this;
}

JsonLine& JsonLine::Number(f32 value) {
  Separate();
  mText +=
      std::isfinite(value) ? fmt::format("{}", value + 0) : "null";  // + 0 drops the sign of -0
  return *this;
}

JsonLine& JsonLine::Number(i64 value) {
  Separate();
  mText += fmt::format("{}", value);
  return *this;
}

JsonLine& JsonLine::Bool(bool value) {
  Separate();
  mText += value ? "true" : "false";
  mNeedsComma = true;
  return *this;
}

JsonLine& JsonLine::Text(std::string_view text) {
  Separate();
  Quote(text);
  return *this;
}

JsonLine& JsonLine::Vector(const Vec3d& v) {
  Open('[');
  for (int a = 0; a < 3; ++a) Number(v[a]);
  return Close(']');
}

JsonLine& JsonLine::Vector(const VecInt3D& v) {
  Open('[');
  for (int a = 0; a < 3; ++a) Number(i64{v[a]});
  return Close(']');
}

}  // namespace MELDO_GLOBAL::app
