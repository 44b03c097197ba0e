#include "scene/json_tree.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <unordered_map>

namespace MELDO_GLOBAL::app {

namespace {

/// Walks over the raw text with line and column. The parser hands out values without their places;
/// this cursor follows it token by token.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : mText(text) {
    if (mText.starts_with("\xEF\xBB\xBF")) mAt = 3;
  }

  u32 Line() const { return mLine; }
  u32 Column() const { return mColumn; }
  std::size_t Byte() const { return mAt; }
  bool AtEnd() const { return mAt >= mText.size(); }
  /// The text from here on.
  std::string_view Rest() const { return mText.substr(std::min(mAt, mText.size())); }

  /// To the first character of the next token: over white space, comments, commas and colons.
  /// With `stopAtSeparator` a comma or colon counts as a token.
  void ToToken(bool stopAtSeparator = false) {
    while (!AtEnd()) {
      const char c = mText[mAt];
      if (c == '/') {
        SkipComment();
      } else if (IsSpace(c) || (!stopAtSeparator && (c == ',' || c == ':'))) {
        Step();
      } else {
        return;
      }
    }
  }

  /// Over the token that begins here.
  void SkipToken() {
    if (AtEnd()) return;
    const char first = mText[mAt];
    Step();
    if (first == '"') {
      while (!AtEnd() && mText[mAt] != '"') {
        if (mText[mAt] == '\\') Step();
        Step();
      }
      Step();
    } else if (std::string_view("{}[]").find(first) == std::string_view::npos) {
      while (!AtEnd() && IsWord(mText[mAt])) Step();
    }
  }

  void ToByte(std::size_t byte) {
    while (mAt < byte && !AtEnd()) Step();
  }

 private:
  static bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
  static bool IsWord(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '+' ||
           c == '-' || c == '.';
  }

  void Step() {
    if (AtEnd()) return;
    const auto c = static_cast<unsigned char>(mText[mAt++]);
    if (c == '\n') {
      ++mLine;
      mColumn = 1;
    } else if (mAt == mText.size() || (static_cast<unsigned char>(mText[mAt]) & 0xC0) != 0x80) {
      ++mColumn;
    }
  }

  void SkipComment() {
    const std::string_view rest = mText.substr(mAt);
    const bool isLine = rest.starts_with("//");
    const std::size_t end = isLine ? rest.find('\n') : rest.find("*/", 2);
    ToByte(end == std::string_view::npos ? mText.size() : mAt + end + (isLine ? 1 : 2));
  }

  std::string_view mText;
  std::size_t mAt = 0;
  u32 mLine = 1;
  u32 mColumn = 1;
};

/// Receives the parser's events and builds the tree.
class Builder : public nlohmann::json_sax<nlohmann::json> {
 public:
  Builder(std::string_view text, const std::string& file, JsonValue& root, Diagnostics& diagnostics)
      : mFile(file), mRoot(root), mDiagnostics(diagnostics), mCursor(text) {}

  bool null() override { return Scalar(nullptr); }
  bool boolean(bool value) override { return Scalar(value); }
  bool number_integer(number_integer_t value) override { return Scalar(double(value)); }
  bool number_unsigned(number_unsigned_t value) override { return Scalar(double(value)); }
  bool number_float(number_float_t value, const string_t&) override { return Scalar(value); }
  bool string(string_t& value) override { return Scalar(std::move(value)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return Open(JsonValue::Object{}); }
  bool start_array(std::size_t) override { return Open(JsonValue::Array{}); }
  bool end_object() override { return Close(); }
  bool end_array() override { return Close(); }

  bool key(string_t& name) override {
    mCursor.ToToken();
    const u32 line = mCursor.Line(), column = mCursor.Column();
    mCursor.SkipToken();
    Level& level = mOpen.back();
    const auto [first, isNew] = level.keyLines.try_emplace(name, line);
    if (!isNew) {
      mDiagnostics.Error({mFile, line, column},
                         fmt::format("the key '{}' is repeated; it stands in line {} already",
                                     Shown(name), first->second));
    }
    auto& members = std::get<JsonValue::Object>(level.value->data);
    if (!isNew) level.repeated.push_back(members.size());
    members.push_back({std::move(name), line, column, {}});
    return true;
  }

  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::detail::exception& error) override {
    const std::string text = Sentence(error.what());
    if (text.find("unexpected") != std::string::npos) {
      ToTokenThatEnds(position);
    } else if (text.find("invalid literal") != std::string::npos ||
               text.find("number overflow") != std::string::npos) {
      mCursor.ToToken();
    } else {
      mCursor.ToByte(position > 0 ? position - 1 : 0);
    }
    mDiagnostics.Error(Here(), fmt::format("not valid JSON: {}{}", Shown(text),
                                           Advice(text, mCursor.Rest(), mOpen.empty())));
    return false;
  }

 private:
  struct Level {
    JsonValue* value;
    std::unordered_map<std::string, u32> keyLines;
    std::vector<std::size_t> repeated;  ///< members whose key stands earlier already
  };

  SourceLocation Here() const { return {mFile, mCursor.Line(), mCursor.Column()}; }

  /// The place that the next value takes in the tree.
  JsonValue& NextSlot() {
    if (mOpen.empty()) return mRoot;
    JsonValue& parent = *mOpen.back().value;
    if (auto* items = std::get_if<JsonValue::Array>(&parent.data)) return items->emplace_back();
    return std::get<JsonValue::Object>(parent.data).back().value;
  }

  template <class T>
  JsonValue& Place(T&& data) {
    mCursor.ToToken();
    JsonValue& slot = NextSlot();
    slot.line = mCursor.Line();
    slot.column = mCursor.Column();
    slot.data = std::forward<T>(data);
    return slot;
  }

  template <class T>
  bool Scalar(T&& data) {
    Place(std::forward<T>(data));
    mCursor.SkipToken();
    return true;
  }

  template <class T>
  bool Open(T&& data) {
    if (mOpen.size() >= kMaxJsonDepth) {
      mCursor.ToToken();
      mDiagnostics.Error(
          Here(), fmt::format("lists and objects are nested more than {} deep", kMaxJsonDepth));
      return false;
    }
    mOpen.push_back({&Place(std::forward<T>(data)), {}, {}});
    mCursor.SkipToken();
    return true;
  }

  bool Close() {
    mCursor.ToToken();
    mCursor.SkipToken();
    DropRepeated(mOpen.back());
    mOpen.pop_back();
    return true;
  }

  static void DropRepeated(const Level& level) {
    if (level.repeated.empty()) return;
    auto& members = std::get<JsonValue::Object>(level.value->data);
    JsonValue::Object kept;
    std::size_t next = 0;
    for (std::size_t i = 0; i < members.size(); ++i) {
      if (next < level.repeated.size() && level.repeated[next] == i) {
        ++next;
      } else {
        kept.push_back(std::move(members[i]));
      }
    }
    members = std::move(kept);
  }

  /// To the start of the token that ends before a byte.
  void ToTokenThatEnds(std::size_t byte) {
    for (;;) {
      mCursor.ToToken(true);
      Cursor behind = mCursor;
      behind.SkipToken();
      if (mCursor.AtEnd() || behind.Byte() >= byte) return;
      mCursor = behind;
    }
  }

  /// What is wrong and what was expected, out of the library's longer text: "[...] parse error at
  /// line 1, column 5: syntax error while parsing value - what is wrong; expected what".
  static std::string Sentence(std::string text) {
    const auto cutBefore = [&](std::string_view mark) {
      if (const auto at = text.find(mark); at != std::string::npos) text.erase(0, at + mark.size());
    };
    const auto replace = [&](std::string_view from, std::string_view to) {
      if (text.ends_with(from)) text.replace(text.size() - from.size(), from.size(), to);
    };
    cutBefore("] ");
    if (text.starts_with("parse error")) cutBefore(": ");
    if (text.starts_with("syntax error")) cutBefore(" - ");
    if (const auto read = text.find("; last read: '"); read != std::string::npos) text.erase(read);
    replace("expected '}'", "expected ',' or '}'");
    replace("expected ']'", "expected ',' or ']'");
    replace("expected string literal", "expected a key in quotes");
    replace("expected '[', '{', or a literal", "expected a value");
    return text;
  }

  /// What to do about it, from what was expected and what stands there.
  static std::string_view Advice(std::string_view wrong, std::string_view here, bool isEmpty) {
    const auto says = [&](std::string_view part) {
      return wrong.find(part) != std::string_view::npos;
    };
    const char first = here.empty() ? '\0' : here.front();
    if (says("unexpected end") && isEmpty) return "; the file is empty";
    if (says("unexpected end")) return "; a bracket, brace or quote isn't closed";
    if (says("forbidden character after backslash"))
      return "; write \\\\ for a backslash, or / in a path";
    if (says("U+000A") || says("U+000D") || says("missing closing quote"))
      return "; the closing quote of this text is missing";
    if (says("expected ':'")) return "; a ':' stands between a key and its value";
    if (says("unexpected '}'") && says("expected a value")) return "; the key has no value";
    if ((says("unexpected '}'") && says("a key")) || (says("unexpected ']'") && says("a value")))
      return "; take away the comma before it";
    if (says("unexpected '}'") && says("or ']'")) return "; a ']' is missing before it";
    if (says("unexpected ']'") && says("or '}'")) return "; a '}' is missing before it";
    if (says("expected ',' or") && !says("unexpected ','") && !says("invalid literal"))
      return "; is a comma missing before it?";
    if (!says("invalid literal")) return {};
    for (const std::string_view word : {"True", "False", "TRUE", "FALSE", "None", "NULL"})
      if (here.starts_with(word)) return "; write true, false or null in small letters";
    switch (first) {
      case '#': return "; comments begin with //";
      case '=': return "; a ':' stands between a key and its value";
      case '.':
      case '+': return "; numbers begin with a digit or -, as in 0.5";
      default: return "; keys and texts stand in double quotes";
    }
  }

  const std::string& mFile;
  JsonValue& mRoot;
  Diagnostics& mDiagnostics;
  Cursor mCursor;
  std::vector<Level> mOpen;
};

/// The first byte that doesn't belong to well-formed UTF-8; the size of the text if there is none.
std::size_t FindBrokenUtf8(std::string_view text) {
  const auto byte = [&](std::size_t i) -> unsigned {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
  };
  const auto follows = [&](std::size_t i) { return (byte(i) & 0xC0) == 0x80; };
  std::size_t i = 0;
  while (i < text.size()) {
    const unsigned c = byte(i), next = byte(i + 1);
    if (c < 0x80) {
      i += 1;
    } else if (c >= 0xC2 && c < 0xE0 && follows(i + 1)) {
      i += 2;
    } else if ((c & 0xF0) == 0xE0 && follows(i + 1) && follows(i + 2) &&
               !(c == 0xE0 && next < 0xA0) && !(c == 0xED && next >= 0xA0)) {
      i += 3;
    } else if (c >= 0xF0 && c <= 0xF4 && follows(i + 1) && follows(i + 2) && follows(i + 3) &&
               !(c == 0xF0 && next < 0x90) && !(c == 0xF4 && next >= 0x90)) {
      i += 4;
    } else {
      return i;
    }
  }
  return i;
}

}  // namespace

bool ParseJson(std::string_view text, const std::string& file, JsonValue& root,
               Diagnostics& diagnostics) {
  const std::size_t broken = FindBrokenUtf8(text);
  if (broken < text.size()) {
    // Over what comes before alone: a stray byte must not count as part of the character before it.
    Cursor cursor(text.substr(0, broken));
    cursor.ToByte(broken);
    diagnostics.Error({file, cursor.Line(), cursor.Column()}, "the text isn't UTF-8");
    return false;
  }
  Builder builder(text, file, root, diagnostics);
  return nlohmann::json::sax_parse(text.begin(), text.end(), &builder,
                                   nlohmann::json::input_format_t::json, true, true);
}

const JsonValue* JsonValue::Find(std::string_view key) const {
  const Object* members = Members();
  if (!members) return nullptr;
  for (const JsonMember& member : *members)
    if (member.key == key) return &member.value;
  return nullptr;
}

std::string_view KindOf(const JsonValue& value) {
  constexpr std::string_view names[] = {"null", "true or false", "a number",
                                        "text", "a list",        "an object"};
  return names[value.data.index()];
}

}  // namespace MELDO_GLOBAL::app
