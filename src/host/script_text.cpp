#include "host/script_text.h"

#include <fmt/format.h>

#include <algorithm>

namespace MELDO_GLOBAL::host {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsOfName(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || IsDigit(c);
}
bool IsLineEnd(char c) { return c == '\n' || c == '\r'; }
bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

void Replace(std::string& text, const std::string& from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
}

}  // namespace

ScriptText::ScriptText(const std::string& source) {
  if (source.size() > kMostSource) {
    mError.text = fmt::format("it is longer than {} bytes", kMostSource);
    return;
  }
  mSource = source;
  while (mAt < mSource.size() && !mError) {
    const char c = At(mAt);
    if (IsSpace(c)) {
      CopyTo(mAt + 1);
      continue;
    }
    if (c == '-' && At(mAt + 1) == '-') {
      CopyComment();
      continue;
    }
    // What stands there begins a statement, and would otherwise be part of the call.
    if (mIsBehindValues && std::string_view("([{\"'.:").find(c) != std::string_view::npos)
      mText += ';';
    mIsBehindValues = false;
    if (c == '"' || c == '\'') {
      CopyQuoted(c);
    } else if (c == '[') {
      if (!CopyLong(mAt)) CopyTo(mAt + 1);
    } else if (IsDigit(c) || (c == '.' && IsDigit(At(mAt + 1)))) {
      CopyNumber();
    } else if (IsOfName(c)) {
      CopyName();
    } else if (mSource.substr(mAt, 3) == "...") {
      WriteValues();
    } else if (c == '.' && At(mAt + 1) == '.') {
      CopyTo(mAt + 2);
    } else if (c == '#') {
      ++mAt;
      mText.append(" ").append(kLengthName).append("^");
    } else {
      if (c == ')') mIsHead = false;
      CopyTo(mAt + 1);
    }
  }
  mSource = {};
}

std::string ScriptText::AsWritten(std::string message) {
  Replace(message, fmt::format("'{}'", kLengthName), "'#'");
  Replace(message, fmt::format("'{}'", kValuesName), "'...'");
  return message;
}

void ScriptText::CopyTo(std::size_t place) {
  const std::string_view part = mSource.substr(mAt, place - mAt);
  mLine += static_cast<u32>(std::count(part.begin(), part.end(), '\n'));
  mText += part;
  mAt = std::min(place, mSource.size());
}

void ScriptText::CopyQuoted(char quote) {
  std::size_t end = mAt + 1;
  // A line that ends before the text does is for the compiler to refuse.
  while (end < mSource.size() && At(end) != quote && !IsLineEnd(At(end))) {
    if (At(end++) != '\\') continue;
    const char escaped = At(end++);
    if (escaped == 'z')
      while (IsSpace(At(end))) ++end;
    else if (IsLineEnd(escaped) && IsLineEnd(At(end)) && At(end) != escaped)
      ++end;
  }
  CopyTo(end + 1);
}

bool ScriptText::CopyLong(std::size_t bracket) {
  std::size_t open = bracket + 1;
  while (At(open) == '=') ++open;
  if (At(open) != '[') return false;
  std::string close = "]";
  close.append(open - bracket - 1, '=').append("]");
  const std::size_t end = mSource.find(close, open + 1);
  CopyTo(end == std::string_view::npos ? mSource.size() : end + close.size());
  return true;
}

void ScriptText::CopyComment() {
  if (At(mAt + 2) == '[' && CopyLong(mAt + 2)) return;
  std::size_t end = mAt;
  while (end < mSource.size() && !IsLineEnd(At(end))) ++end;
  CopyTo(end);
}

void ScriptText::CopyNumber() {
  const bool isHex = At(mAt) == '0' && (At(mAt + 1) == 'x' || At(mAt + 1) == 'X');
  std::size_t end = mAt + 1;
  for (; IsOfName(At(end)) || At(end) == '.'; ++end) {
    const char c = At(end);
    const bool isExponent = isHex ? c == 'p' || c == 'P' : c == 'e' || c == 'E';
    if (isExponent && (At(end + 1) == '+' || At(end + 1) == '-')) ++end;
  }
  CopyTo(end);
}

void ScriptText::CopyName() {
  std::size_t end = mAt;
  while (IsOfName(At(end))) ++end;
  const std::string_view name = mSource.substr(mAt, end - mAt);
  if (name == kLengthName || name == kValuesName)
    mError = {fmt::format("the name '{}' is taken", name), mLine};
  if (name == "function") mIsHead = true;
  mNames.emplace(name);
  CopyTo(end);
}

void ScriptText::WriteValues() {
  if (mIsHead) return CopyTo(mAt + 3);
  mAt += 3;
  mText.append(" ").append(kValuesName).append("(...)");
  mIsBehindValues = true;
}

}  // namespace MELDO_GLOBAL::host
