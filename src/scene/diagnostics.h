// The problems of an input, collected so that all of them are told at once.
#pragma once
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/value.h"

namespace MELDO_GLOBAL::app {

/// A place in an input: a file (or an option of the command line, then line is 0), line and column
/// from 1; columns count characters, not bytes.
struct SourceLocation {
  std::string file;
  u32 line = 0;
  u32 column = 0;
};

struct Message {
  enum class Severity { Note, Warning, Error };
  Severity severity;
  SourceLocation where;
  std::string text;
};

/// Collects messages in the order in which they were found.
class Diagnostics {
 public:
  void Error(SourceLocation where, std::string text);
  void Warning(SourceLocation where, std::string text);
  void Note(SourceLocation where, std::string text);
  /// Keeps why a node does nothing, as it was told; the first reason stands.
  void NoteSleeper(host::NodeId node, std::string why) { mSleepers.emplace(node, std::move(why)); }
  const std::map<host::NodeId, std::string>& Sleepers() const { return mSleepers; }

  bool HasErrors() const { return mErrors > 0; }
  bool HasWarnings() const;
  const std::vector<Message>& Messages() const { return mMessages; }

  /// One line each: `file:line:column: error: text`, ordered by place within a file; an option has
  /// no line and column.
  std::vector<std::string> Lines() const;
  /// Prints the lines; of many errors the first ones, and how many more there are.
  void Print(std::FILE* out = stderr) const;

 private:
  std::vector<const Message*> Ordered() const;

  std::vector<Message> mMessages;
  std::map<host::NodeId, std::string> mSleepers;
  std::size_t mErrors = 0;
};

/// `text` for a message: control characters become `?`, a long text is shortened.
std::string Shown(std::string_view text, std::size_t longest = 80);

/// "a", "a or b", "a, b or c".
std::string AnyOf(const std::vector<std::string>& words);

/// The candidate that a misspelt word most likely means, or an empty text. Case and the difference
/// between `-`, space and `_` count little; otherwise a third of the word's letters may differ.
std::string NearestName(std::string_view word, const std::vector<std::string_view>& candidates);

/// "; did you mean 'x'?", or an empty text where nothing is near.
std::string Suggestion(std::string_view word, const std::vector<std::string_view>& candidates);

}  // namespace MELDO_GLOBAL::app
