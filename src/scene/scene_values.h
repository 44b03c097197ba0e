// Parameter values of a scene file: every kind of value, links by name, keys.
#pragma once
#include <functional>
#include <optional>
#include <string>

#include "host/keyed_points.h"
#include "host/node.h"
#include "host/parameter.h"
#include "scene/scene_context.h"

namespace MELDO_GLOBAL::app {

/// True for `{"keys": ...}` and its misspellings: an object where a value was due.
inline bool IsKeyed(const JsonValue& value) { return value.Members() != nullptr; }

/// Whether the values of a type may change with the frame.
bool CanBeKeyed(host::ParameterType type);

/// Whether a change of a row of a kind of node starts the simulation anew, as keys then would in
/// every frame.
bool RestartsSimulation(i32 kind, const host::ParameterRow& row);

class ValueReader {
 public:
  ValueReader(SceneContext& context, const NameTable& names) : mContext(context), mNames(names) {}

  /// Names mean nodes of this node's server first.
  void LookFrom(const host::BaseNode& node);

  /// Reads an object of parameters into a node with a table (a node or a tag): readable names or
  /// numeric ids as keys. Keyed values take the value of `frame`.
  void ReadParameters(const JsonValue& object, host::BaseNode& node, i32 frame,
                      const Subject& subject);

  /// Reads one parameter; `key` is its name or id.
  void ReadParameter(const host::ParameterRow& row, const JsonValue& value, host::BaseNode& node,
                     i32 frame, const Subject& subject);

  /// The row that a key names, or null with a message.
  const host::ParameterRow* FindRow(const JsonMember& key, const host::ParameterTable& table,
                                    const Subject& subject);

  /// The node that a name or path means; null with a message if there is none, several, or one of
  /// a kind that isn't among `accepts` (empty takes any), for which `expected` are words.
  host::BaseNode* ResolveLink(const std::string& reference, const std::vector<i32>& accepts,
                              const JsonValue& at, const Subject& subject, const std::string& what,
                              std::string_view expected = {});

 private:
  std::optional<host::Value> ReadPlain(const host::ParameterRow& row, const JsonValue& value,
                                       const Subject& subject, const std::string& what);
  std::optional<host::Value> ReadChoice(const host::ParameterRow& row, const JsonValue& value,
                                        const Subject& subject, const std::string& what);
  /// Reads a script as a text, a list of its lines or the name of a file, and compiles it.
  void ReadScript(const host::ParameterRow& row, const JsonValue& value, host::BaseNode& node,
                  const Subject& subject);
  std::optional<host::Value> ReadLink(const host::ParameterRow& row, const JsonValue& value,
                                      const Subject& subject, const std::string& what);
  std::optional<host::Value> ReadLinks(const host::ParameterRow& row, const JsonValue& value,
                                       const Subject& subject, const std::string& what);
  /// Adds what an item of a list names: a node, or the children of a group. False with a message.
  bool ReadEntry(const host::ParameterRow& row, const JsonValue& item, const Subject& subject,
                 const std::string& what, host::InExcludeData& list);
  /// "; did you mean 'x'?" for a name that no node has: the nearest one that fits.
  std::string Hint(const std::string& reference, const std::vector<i32>& accepts);
  /// The node or group that a link may name; null with a message.
  host::BaseNode* ResolveLinkOrGroup(const std::string& reference, const host::ParameterRow& row,
                                     const JsonValue& at, const Subject& subject,
                                     const std::string& what);
  /// What a group stands for: its children, those of groups in it among them. False, with a
  /// message, where it has none or one that `row` doesn't take.
  bool Members(const host::BaseNode& group, const host::ParameterRow& row, const JsonValue& at,
               const Subject& subject, const std::string& what,
               std::vector<const host::BaseNode*>& members);
  /// The flags of an entry: a number, or a word for each kind of particles, which makes an entry
  /// for each. Empty, with a message, where they don't fit.
  std::vector<u32> ReadEntryFlags(const JsonValue& item, const Subject& subject,
                                  const std::string& what);
  std::vector<u32> ReadKinds(const JsonValue& value, const Subject& subject,
                             const std::string& what);
  std::optional<u32> ReadFlags(const JsonValue& value, const Subject& subject,
                               const std::string& what);
  std::optional<host::Value> ReadCurve(const JsonValue& value, const Subject& subject,
                                       const std::string& what);
  std::optional<host::Value> ReadGradient(const JsonValue& value, const Subject& subject,
                                          const std::string& what);
  bool InRange(double number, const host::ParameterRow& row, const JsonValue& value,
               const Subject& subject, const std::string& what);

  SceneContext& mContext;
  const NameTable& mNames;
  const host::BaseNode* mSelf = nullptr;    ///< the node that is read
  const host::BaseNode* mServer = nullptr;  ///< its server
};

/// Reads `{"keys": [[frame, value], ...], "interpolation": word}`; `readValue` reads the value of a
/// key. Nothing, with a message, if it doesn't fit.
std::optional<host::Track> ReadTrack(
    SceneContext& context, const JsonValue& value, const Subject& subject, const std::string& what,
    const std::function<std::optional<host::Value>(const JsonValue&)>& readValue);

/// Reads `{"keys": [[frame, [[x, y, z], ...]], ...], "interpolation": word}`, with as many points
/// in every key. Nothing, with a message, if it doesn't fit.
std::optional<host::PointTrack> ReadPointTrack(SceneContext& context, const JsonValue& value,
                                               std::size_t atLeast, const Subject& subject,
                                               const std::string& what);

/// The row that a key of a scene file names, by its name or its id as text; null if none does.
const host::ParameterRow* RowNamed(const host::ParameterTable& table, std::string_view key);

/// What a node is called in messages: its short type name, or the word for a host object.
std::string TypeWord(const host::BaseNode& node);

/// How a message begins that concerns a node: `fluid "gas"`.
std::string KindAndName(const host::BaseNode& node);

/// The name of a node inside of a sentence: `'gas'`.
std::string Named(const host::BaseNode& node);

}  // namespace MELDO_GLOBAL::app
