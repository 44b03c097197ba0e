#include "scene/text_edits.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace MELDO_GLOBAL::app {

TextEdits::TextEdits(std::string_view text) : mText(text) {
  mLines.push_back(text.starts_with("\xEF\xBB\xBF") ? 3 : 0);
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] == '\n') mLines.push_back(i + 1);
}

std::size_t TextEdits::Begin(const JsonValue& value) const {
  std::size_t at = mLines[value.line - 1];
  for (u32 column = 1; column < value.column; ++column) {
    ++at;
    while (at < mText.size() && (static_cast<unsigned char>(mText[at]) & 0xC0) == 0x80) ++at;
  }
  return at;
}

std::size_t TextEdits::End(const JsonValue& value) const {
  int depth = 0;
  std::size_t at = Begin(value);
  do {
    const std::string_view rest = mText.substr(at);
    if (rest.starts_with("//") || rest.starts_with("/*")) {
      const std::size_t end = rest[1] == '/' ? rest.find('\n') : rest.find("*/", 2) + 1;
      at = end == std::string_view::npos ? mText.size() : at + end + 1;
      continue;
    }
    const char c = mText[at++];
    if (c == '[' || c == '{') ++depth;
    if (c == ']' || c == '}') --depth;
    if (c != '"') continue;
    for (; at < mText.size() && mText[at] != '"'; ++at)
      if (mText[at] == '\\') ++at;
    ++at;
  } while (depth > 0 && at < mText.size());
  return at;
}

std::string TextEdits::Raw(const JsonValue& value) const {
  return std::string(mText.substr(Begin(value), End(value) - Begin(value)));
}

std::string TextEdits::IndentOf(const JsonValue& value) const {
  const std::size_t start = mLines[value.line - 1];
  const std::size_t end = std::min(mText.find_first_not_of(" \t", start), Begin(value));
  return std::string(mText.substr(start, end - start));
}

void TextEdits::Replace(const JsonValue& value, std::string by) {
  mEdits.push_back({Begin(value), End(value), std::move(by)});
}

void TextEdits::InsertFirst(const JsonValue& value, std::string what) {
  const std::size_t at = Begin(value) + 1;
  mEdits.push_back({at, at, std::move(what)});
}

void TextEdits::InsertBehind(const JsonValue& item, std::string what) {
  const std::size_t at = End(item);
  mEdits.push_back({at, at, std::move(what)});
}

void TextEdits::InsertLines(const JsonValue& list, const std::string& lines) {
  const std::size_t bracket = End(list) - 1;
  const std::size_t line = mText.rfind('\n', bracket) + 1;
  const bool isAlone = line > 0 && mText.find_first_not_of(" \t\r", line) == bracket;
  const std::size_t at = isAlone ? line : bracket;
  mEdits.push_back({at, at, isAlone ? lines : "\n" + lines});
}

std::string TextEdits::Apply() {
  std::stable_sort(mEdits.begin(), mEdits.end(),
                   [](const Edit& a, const Edit& b) { return a.begin < b.begin; });
  std::string result;
  std::size_t done = 0;
  for (const Edit& edit : mEdits) {
    result += mText.substr(done, edit.begin - done);
    result += edit.by;
    done = edit.end;
  }
  return result.append(mText.substr(done));
}

std::string Quoted(const std::string& text) { return nlohmann::json(text).dump(); }

}  // namespace MELDO_GLOBAL::app
