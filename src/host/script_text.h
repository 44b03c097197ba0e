// The text of a script as it is compiled.
#pragma once
#include <set>
#include <string>
#include <string_view>

#include "host/script_family.h"

namespace MELDO_GLOBAL::host {

/// The names of the two values that `PushScriptOperators` pushes. No script may use them.
inline constexpr std::string_view kLengthName = "_sulva_length", kValuesName = "_sulva_values";

/// A source with its `#` and `...` written as calls of ours, which every script reaches by names
/// that it can't use itself: of a table that has gaps the language's own length depends on where
/// its keys came to lie, which is chance, and the values behind `...` cost time that no limit
/// counts. `#` becomes a power of `kLengthName`, which binds as it does; `...` a call of
/// `kValuesName` with it. Lines stay.
class ScriptText {
 public:
  static constexpr std::size_t kMostSource = std::size_t{32} << 10;

  explicit ScriptText(const std::string& source);
  /// Why it can't be compiled, if it is too long or uses a name of ours.
  const ScriptError& Error() const { return mError; }
  const std::string& Text() const { return mText; }
  /// Whether a name stands in the source, comments and texts aside.
  bool Names(std::string_view name) const { return mNames.contains(name); }

  /// A message of the compiler with the source's own signs.
  static std::string AsWritten(std::string message);

 private:
  char At(std::size_t place) const { return place < mSource.size() ? mSource[place] : '\0'; }
  /// Copies the source up to a place.
  void CopyTo(std::size_t place);
  void CopyQuoted(char quote);
  /// Copies a text or comment between long brackets that opens at `bracket`, from where it stands;
  /// false where none does.
  bool CopyLong(std::size_t bracket);
  void CopyComment();
  void CopyNumber();
  void CopyName();
  void WriteValues();

  std::string_view mSource;  ///< while it is read
  std::size_t mAt = 0;
  u32 mLine = 1;
  bool mIsHead = false;          ///< between the word `function` and the end of its parameters
  bool mIsBehindValues = false;  ///< no word or sign has come since
  std::string mText;
  std::set<std::string, std::less<>> mNames;
  ScriptError mError;
};

}  // namespace MELDO_GLOBAL::host
