#include "exchange/text_source.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/mesh_readers.h"

namespace MELDO_GLOBAL::exchange {

namespace {

constexpr std::size_t kLongestWord = 4096, kLongestLine = 1 << 20;

bool IsSpace(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

std::string Printable(std::string_view word) {
  std::string text(word.substr(0, 40));
  for (char& c : text)
    if (static_cast<u8>(c) < ' ' || c == '\x7f') c = '?';
  return text;
}

}  // namespace

void TextSource::Fail(std::string_view why) const {
  Damaged(fmt::format("line {}: {}", mLine, why));
}

bool TextSource::Line(std::string& line) {
  line.clear();
  if (mSource.AtEnd()) return false;
  mLine = mNext++;
  for (int c = mSource.Get(); c >= 0 && c != '\n'; c = mSource.Get()) {
    if (line.size() == kLongestLine) Fail("it is longer than any line of such a file");
    line += static_cast<char>(c);
  }
  if (line.ends_with('\r')) line.pop_back();
  return true;
}

void TextSource::Take(char c) {
  if (mWord.size() == kLongestWord) Fail("a word is longer than any of such a file");
  mWord += c;
}

void TextSource::ReadQuoted() {
  mWasQuoted = true;
  for (int c = mSource.Get(); c != '"'; c = mSource.Get()) {
    if (c == '\\') c = mSource.Get();
    if (c < 0) Fail("a quote doesn't end");
    mNext += c == '\n';
    Take(static_cast<char>(c));
  }
}

std::string_view TextSource::Word(std::string_view marks) {
  mWord.clear();
  mWasQuoted = false;
  for (int c = mSource.Get(); c >= 0; c = mSource.Get()) {
    if (IsSpace(c)) {
      mNext += c == '\n';
      continue;
    }
    mLine = mNext;
    if (c == '"') {
      ReadQuoted();
      return mWord;
    }
    Take(static_cast<char>(c));
    if (marks.find(static_cast<char>(c)) != std::string_view::npos) return mWord;
    break;
  }
  while (!mWord.empty()) {
    const int next = mSource.Next();
    if (next < 0 || IsSpace(next) || next == '"' ||
        marks.find(static_cast<char>(next)) != std::string_view::npos)
      break;
    Take(static_cast<char>(mSource.Get()));
  }
  return mWord;
}

double TextSource::RealOf(std::string_view word) const {
  const auto value = host::ParseReal(word);
  if (word.empty()) Fail("it ends too early");
  if (!value) Fail(fmt::format("expected a number, got \"{}\"", Printable(word)));
  return *value;
}

TextNumber TextSource::NumberOf(std::string_view word) const {
  if (const auto whole = host::ParseInteger(word)) return {static_cast<double>(*whole), *whole};
  constexpr double kMost = 0x1p63;
  const double real = RealOf(word);
  if (std::isnan(real)) return {real, 0};
  if (real >= kMost) return {real, std::numeric_limits<i64>::max()};
  return {real, static_cast<i64>(std::max(real, -kMost))};
}

i64 TextSource::WholeOf(std::string_view word) const {
  const auto value = host::ParseInteger(word);
  if (word.empty()) Fail("it ends too early");
  if (!value) Fail(fmt::format("expected a whole number, got \"{}\"", Printable(word)));
  return *value;
}

double TextSource::Real(std::string_view marks) { return RealOf(Word(marks)); }
TextNumber TextSource::Number(std::string_view marks) { return NumberOf(Word(marks)); }
i64 TextSource::Whole(std::string_view marks) { return WholeOf(Word(marks)); }

void TextSource::Expect(std::string_view word, std::string_view marks) {
  const std::string_view got = Word(marks);
  if (got.empty()) Fail("it ends too early");
  if (got != word) Fail(fmt::format("expected \"{}\", got \"{}\"", word, Printable(got)));
}

}  // namespace MELDO_GLOBAL::exchange
