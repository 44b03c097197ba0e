// Words, lines and numbers of a text file.
#pragma once
#include <string>
#include <string_view>

#include "exchange/byte_source.h"

namespace MELDO_GLOBAL::exchange {

/// A number of a text. Whole ones have all their digits, of which a double drops some.
struct TextNumber {
  double real = 0;
  i64 whole = 0;  ///< what stands before the point, at most what 64 bits hold
};

/// Takes words or lines off a source. Throws host::FileError with the number of the line.
class TextSource {
 public:
  explicit TextSource(ByteSource& source) : mSource(source) {}

  /// The next line without its end; false behind the last.
  bool Line(std::string& line);
  /// The next word; empty at the end. Quotes hold words together, and each of the `marks` is a word
  /// of its own. Lasts until the next one.
  std::string_view Word(std::string_view marks = {});
  /// The next word as a number.
  double Real(std::string_view marks = {});
  TextNumber Number(std::string_view marks = {});
  i64 Whole(std::string_view marks = {});
  /// The next word has to be this one.
  void Expect(std::string_view word, std::string_view marks = {});
  /// Whether the last word stood in quotes.
  bool WasQuoted() const { return mWasQuoted; }

  double RealOf(std::string_view word) const;
  TextNumber NumberOf(std::string_view word) const;
  i64 WholeOf(std::string_view word) const;
  [[noreturn]] void Fail(std::string_view why) const;

  ByteSource& Source() { return mSource; }

 private:
  void Take(char c);
  void ReadQuoted();

  ByteSource& mSource;
  std::string mWord;
  bool mWasQuoted = false;
  i64 mLine = 1;  ///< of the last word or line
  i64 mNext = 1;  ///< of the next byte
};

}  // namespace MELDO_GLOBAL::exchange
