// What the readers of a scene file's sections share: messages, names, simple values.
#pragma once
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/document.h"
#include "scene/diagnostics.h"
#include "scene/json_tree.h"

namespace MELDO_GLOBAL::app {

/// The type of nodes that stand for a node or object of unknown type, so that what links to them
/// isn't reported as well.
inline constexpr i32 kUnknownNode = 0;

/// The words in front of a message that say what it speaks of: `gridemitter "source": `, or none.
using Subject = std::string;

class SceneContext {
 public:
  /// `file` names the scene in messages; paths in it are relative to `sceneFolder`. With `option`
  /// the values come from an option of the command line, which messages name in place of a line.
  SceneContext(host::Document& doc, Diagnostics& messages, std::string file,
               std::filesystem::path sceneFolder)
      : document(doc),
        mDiagnostics(messages),
        mFile(std::move(file)),
        mFolder(std::move(sceneFolder)) {}

  host::Document& document;

  /// Messages name this option until it is set back to an empty text.
  void SetOption(std::string option) { mOption = std::move(option); }

  SourceLocation Where(const JsonValue& at) const { return Where(at.line, at.column); }
  SourceLocation Where(u32 line, u32 column) const;
  void Error(const JsonValue& at, const Subject& subject, const std::string& text);
  void Error(const JsonMember& at, const Subject& subject, const std::string& text);
  void Error(SourceLocation where, const std::string& text) {
    mDiagnostics.Error(std::move(where), text);
  }
  void Warning(const JsonValue& at, const Subject& subject, const std::string& text);
  void Warning(SourceLocation where, const std::string& text) {
    mDiagnostics.Warning(std::move(where), text);
  }
  void Note(const JsonMember& at, const Subject& subject, const std::string& text);

  /// "; did you mean 'x'?", or nothing. A file of nothing but mistakes gets help with the first few
  /// hundred: each one costs a comparison with all names.
  std::string Suggest(std::string_view word, const std::vector<std::string_view>& candidates);
  /// Likewise, but "; expected a, b or c" where nothing is near and the choice is small.
  std::string SuggestOrList(std::string_view word, const std::vector<std::string_view>& candidates);
  bool MaySuggest() const { return mSuggestions < kMostSuggestions; }

  /// A path of the scene file as the working directory sees it.
  std::filesystem::path Resolve(const std::string& path) const;

  // The readers below give nothing, with a message, for a value that doesn't fit. `what` names the
  // value in messages: "'fps'".

  /// The members of an object whose keys are all among `allowed`; unknown keys get a message.
  /// A key that is among `parameters` was meant for the object of that name.
  bool CheckKeys(const JsonValue& object, const std::vector<std::string_view>& allowed,
                 const Subject& subject, const host::ParameterTable* parameters = nullptr);
  std::optional<double> ReadNumber(const JsonValue& value, const Subject& subject,
                                   const std::string& what);
  std::optional<i32> ReadWhole(const JsonValue& value, const Subject& subject,
                               const std::string& what);
  std::optional<bool> ReadBool(const JsonValue& value, const Subject& subject,
                               const std::string& what);
  std::optional<std::string> ReadText(const JsonValue& value, const Subject& subject,
                                      const std::string& what);
  /// Two or three numbers.
  std::optional<std::vector<double>> ReadNumbers(const JsonValue& value, std::size_t count,
                                                 const Subject& subject, const std::string& what);
  std::optional<Vec3d> ReadVector(const JsonValue& value, const Subject& subject,
                                  const std::string& what);
  /// A list of points, at least `atLeast` of them.
  std::optional<std::vector<Vec3d>> ReadPoints(const JsonValue& value, std::size_t atLeast,
                                               const Subject& subject, const std::string& what);

 private:
  static constexpr int kMostSuggestions = 500;
  static constexpr std::size_t kMostListed = 16;  ///< names that a message can list and stay clear

  Diagnostics& mDiagnostics;
  int mSuggestions = 0;
  std::string mFile;
  std::string mOption;
  std::filesystem::path mFolder;
};

/// The nodes of a document by name and path.
class NameTable {
 public:
  void Add(host::BaseNode& node) { mByName[node.Name()].push_back(&node); }

  struct Candidate {
    host::BaseNode* node;
    bool isWholePath;  ///< the reference is the node's path from the top
  };
  /// What a name ("emitter"), the end of a path ("server/emitter") or a path from the top
  /// ("/server/emitter") may mean.
  std::vector<Candidate> Find(std::string_view reference) const;
  /// The names, of all nodes or of those that fit.
  std::vector<std::string_view> Names(
      const std::function<bool(const host::BaseNode&)>& fits = {}) const;

 private:
  std::unordered_map<std::string, std::vector<host::BaseNode*>> mByName;
};

/// Hands out names that siblings don't share. Names that the file gives are reserved first.
class SiblingNames {
 public:
  /// False if the name is taken.
  bool Reserve(const std::string& name) { return mTaken.insert(name).second; }
  /// `base`, or `base 2`, `base 3`, ...
  std::string MakeUnique(const std::string& base);

 private:
  std::unordered_set<std::string> mTaken;
  std::unordered_map<std::string, int> mNext;
};

}  // namespace MELDO_GLOBAL::app
