#include "scene/cache_setup.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <set>

#include "cache/cache_rows.h"
#include "cache/grid_cacher.h"
#include "cache/mesh_cacher.h"
#include "cache/particle_cacher.h"
#include "framework/cache_setup_rows.h"
#include "framework/interface_handler.h"
#include "framework/server_rows.h"
#include "host/exit_codes.h"
#include "nodes/catalogue.h"
#include "scene/parameter_text.h"
#include "scene/scene_context.h"
#include "scene/scene_values.h"
#include "scene/text_edits.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using MELDO_SULVA::FindKind;
using MELDO_SULVA::GridCacher;
using MELDO_SULVA::InterfaceHandler;
using MELDO_SULVA::IsA;
using MELDO_SULVA::MeshCacher;
using MELDO_SULVA::NodeKind;
using MELDO_SULVA::ParametersOf;
using MELDO_SULVA::ParticleCacher;

namespace {

namespace setup = MELDO_SULVA::cache_setup;
namespace cache_row = MELDO_SULVA::cache_row;

struct Passed {
  i32 server, cacher;
};
/// What a cacher takes over from its server where that has another value than a new one.
constexpr Passed kPassed[] = {
    {setup::kRenderOnly, cache_row::kRenderOnly}, {setup::kPlace, cache_row::kFolder},
    {setup::kFolder, cache_row::kCustomFolder},   {setup::kName, cache_row::kBaseName},
    {setup::kShowFrame, cache_row::kShowFrame},   {setup::kFrameOffset, cache_row::kFrameOffset},
    {setup::kBackwards, cache_row::kBackwards},   {setup::kCompression, cache_row::kCompression},
    {setup::kFormat, cache_row::kFormat},         {setup::kParticleFormat, cache_row::kFormat},
    {setup::kNumbering, cache_row::kNumbering}};

/// A kind of cachers, and what a new one is called.
struct CacherKind {
  const NodeKind& (*kind)();
  const char* name;
};
constexpr CacherKind kCacherKinds[] = {{GridCacher::Kind, "cacher"},
                                       {ParticleCacher::Kind, "particle cacher"},
                                       {MeshCacher::Kind, "mesh cacher"}};

/// The kind of cachers that takes nodes of a type, or null.
const NodeKind* CacherFor(i32 type) {
  for (const CacherKind& each : kCacherKinds) {
    const NodeKind& kind = *FindKind(each.kind().id);
    const ParameterRow* row = FindRow(ParametersOf(kind), cache_row::kObjects);
    if (std::find(row->accepts.begin(), row->accepts.end(), type) != row->accepts.end())
      return &kind;
  }
  return nullptr;
}
bool IsCacher(const BaseNode& node) {
  const NodeKind* kind = FindKind(node.Type());
  return kind && kind->list == MELDO_SULVA::kListCaches;
}
/// Those of which a cacher is made where the server names none: what a simulation changes.
bool IsSimulated(i32 type) {
  const NodeKind* kind = FindKind(type);
  const NodeKind* cacher = CacherFor(type);
  return cacher &&
         (cacher->id != GridCacher::Kind().id || kind->list == MELDO_SULVA::kListChannels ||
          kind->list == MELDO_SULVA::kListSolvers);
}

class Setup {
 public:
  Setup(std::string_view text, const JsonValue& root, const LoadedScene& scene)
      : mText(text), mEdits(text), mScene(scene), mNodes(*root.Find("nodes")) {
    for (const BaseNode* node : scene.document->Roots()) AddName(*node);
    const JsonValue::Array& servers = *mNodes.Items();
    for (std::size_t i = 0; i < servers.size(); ++i) AddPlaces(*scene.servers[i], servers[i]);
    for (const BaseNode* server : scene.servers) FindCachers(*server);
  }

  CacheSetup Run() {
    std::vector<const BaseNode*> named;
    for (const BaseNode* server : mScene.servers)
      for (const auto& [object, flags] : Entries(*server, setup::kObjects)) {
        std::vector<u32>& known = mFlags[object];
        if (known.empty()) named.push_back(object);
        if (std::find(known.begin(), known.end(), flags) == known.end()) known.push_back(flags);
      }
    for (const BaseNode* object : named) {
      CheckCacheable(*object);
      CheckUncached(*object);
    }
    for (const BaseNode* server : mScene.servers) {
      std::vector<const BaseNode*> objects;
      if (named.empty()) Collect(*server, objects);
      for (const BaseNode* object : named)
        if (object->HasAncestor(server)) objects.push_back(object);
      if (!objects.empty()) SetUp(*server, objects);
    }
    if (mNotes.empty())
      throw CommandError(kExitUsage,
                         "nothing is left to cache: all that is simulated has its cacher already");
    return {mEdits.Apply(), std::move(mNotes)};
  }

 private:
  void AddName(const BaseNode& node) {
    mTaken.insert(node.Name());
    for (const BaseNode* child : node.Children()) AddName(*child);
  }
  std::string NewName(const std::string& base) {
    std::string name = base;
    for (int i = 2; !mTaken.insert(name).second; ++i) name = fmt::format("{} {}", base, i);
    return name;
  }
  /// Where the nodes stand in the file: they have its order.
  void AddPlaces(const BaseNode& node, const JsonValue& value) {
    mPlaces[&node] = &value;
    const JsonValue* children = value.Find("children");
    for (std::size_t i = 0; i < node.Children().size(); ++i)
      AddPlaces(*node.Children()[i], (*children->Items())[i]);
  }
  void FindCachers(const BaseNode& node) {
    if (IsCacher(node)) {
      ++mCachers[node.Type()];
      for (const Entry& entry : Entries(node, cache_row::kObjects)) mCachedBy[entry.first] = &node;
    }
    for (const BaseNode* child : node.Children()) FindCachers(*child);
  }
  using Entry = std::pair<const BaseNode*, u32>;
  /// What a link or a list of them leads to, with the flags of each.
  std::vector<Entry> Entries(const BaseNode& node, i32 id) const {
    std::vector<Entry> entries;
    const auto add = [&](NodeId target, u32 flags) {
      if (const BaseNode* linked = mScene.document->Find(target))
        entries.emplace_back(linked, flags);
    };
    const Value* value = node.Get(id);
    if (const auto* link = value ? std::get_if<Link>(value) : nullptr) add(link->node, 0);
    if (const auto* list = value ? std::get_if<InExcludeData>(value) : nullptr)
      for (const auto& entry : list->entries) add(entry.node, entry.flags);
    return entries;
  }

  void CheckUncached(const BaseNode& object) const {
    const auto cacher = mCachedBy.find(&object);
    if (cacher != mCachedBy.end() && !PlaysElsewhere(ServerOf(object)))
      throw CommandError(kExitUsage, fmt::format("{} is cached by {} already", KindAndName(object),
                                                 KindAndName(*cacher->second)));
  }
  void Collect(const BaseNode& node, std::vector<const BaseNode*>& objects) const {
    for (const BaseNode* child : node.Children()) {
      if (IsSimulated(child->Type()) &&
          (PlaysElsewhere(ServerOf(node)) || !mCachedBy.contains(child)))
        objects.push_back(child);
      Collect(*child, objects);
    }
  }
  static const BaseNode& ServerOf(const BaseNode& node) {
    return node.Parent() ? ServerOf(*node.Parent()) : node;
  }
  static bool PlaysElsewhere(const BaseNode& server) {
    const InterfaceHandler parameters(const_cast<BaseNode*>(&server));
    return parameters.GetLong(setup::kMode) == 0 && parameters.GetBool(setup::kCopyServer);
  }

  void SetUp(const BaseNode& server, const std::vector<const BaseNode*>& objects) {
    if (PlaysElsewhere(server)) return AddServer(server, objects);
    std::map<const BaseNode*, std::string> names;
    for (const BaseNode* object : objects) names[object] = ReferenceTo(*object);
    const InterfaceHandler parameters(const_cast<BaseNode*>(&server));
    const i32 mode = parameters.GetLong(setup::kMode);
    Append(*mPlaces.at(&server)->Find("children"),
           CacherNodes(server, objects, names, mode,
                       mode == cache_row::kPlayBack ? "plays" : "records"));
  }
  void Note(const BaseNode& server, const std::string& cacher, std::string_view does,
            const std::vector<const BaseNode*>& objects) {
    std::string names;
    for (const BaseNode* object : objects) names += (names.empty() ? "" : ", ") + object->Name();
    mNotes.push_back(fmt::format("{}: the cache \"{}\" {} {}", KindAndName(server), Shown(cacher),
                                 does, Shown(names)));
  }

  /// A name where it is the only one, else the path.
  std::string ReferenceTo(const BaseNode& node) const {
    int count = 0;
    const std::function<void(const BaseNode&)> look = [&](const BaseNode& each) {
      count += each.Name() == node.Name();
      for (const BaseNode* child : each.Children()) look(*child);
    };
    for (const BaseNode* each : mScene.document->Roots()) look(*each);
    return count > 1 ? fmt::format("/{}", node.Path()) : node.Name();
  }

  // ---- text of nodes --------------------------------------------------------------------------

  /// A cacher for each kind of objects, and a time window where one is wanted, with comments in
  /// front. `names` are those by which the objects are named.
  std::vector<std::string> CacherNodes(const BaseNode& server,
                                       const std::vector<const BaseNode*>& objects,
                                       const std::map<const BaseNode*, std::string>& names,
                                       i32 mode, const std::string& does) {
    const InterfaceHandler parameters(const_cast<BaseNode*>(&server));
    std::vector<std::string> lines;
    std::string settings =
        fmt::format("\"mode\": {}", Word(GridCacher::Kind().id, cache_row::kMode, Value(mode)));
    if (parameters.GetBool(setup::kWindow)) {
      const std::string window = NewName("cache window");
      lines.emplace_back("// When the caches work; without a length, always.");
      lines.push_back(fmt::format(R"({{ "type": "duration", "name": {} }},)", Quoted(window)));
      settings += fmt::format(", \"duration\": {}", Quoted(window));
    }
    lines.emplace_back(mode == cache_row::kPlayBack
                           ? "// Shows what was recorded, a file a frame, and simulates nothing."
                           : "// Keeps what is simulated, a file a frame. With the mode "
                             "\"play_back\" a later run shows it again.");
    for (const CacherKind& each : kCacherKinds) {
      const NodeKind& kind = *FindKind(each.kind().id);
      for (const auto& [recorder, own] : ByRecorder(objects, kind, mode)) {
        std::string list;
        for (const BaseNode* object : own)
          for (const u32 flags : FlagsOf(*object))
            list += (list.empty() ? "" : ", ") + EntryText(names.at(object), flags);
        if (lines.back().ends_with('}')) lines.back() += ',';
        const std::string name = NewName(each.name);
        lines.push_back(fmt::format(
            R"({{ "type": "{}", "name": {}, "parameters": {{ {}{}, "objects": [{}] }} }})",
            kind.type, Quoted(name), settings, Settings(server, kind, recorder), list));
        Note(server, name, does, own);
        ++mCachers[kind.id];
      }
    }
    return lines;
  }
  /// The objects of a kind of cachers, in lists of a cacher each: what plays is played from the
  /// files of one that recorded it, or of none.
  std::vector<std::pair<const BaseNode*, std::vector<const BaseNode*>>> ByRecorder(
      const std::vector<const BaseNode*>& objects, const NodeKind& kind, i32 mode) const {
    std::vector<std::pair<const BaseNode*, std::vector<const BaseNode*>>> lists;
    for (const BaseNode* object : objects) {
      if (CacherFor(object->Type()) != &kind) continue;
      const auto cacher = mCachedBy.find(object);
      const bool isRecorded = mode == cache_row::kPlayBack && cacher != mCachedBy.end();
      const BaseNode* recorder = isRecorded ? cacher->second : nullptr;
      auto list = std::find_if(lists.begin(), lists.end(),
                               [&](const auto& each) { return each.first == recorder; });
      if (list == lists.end()) {
        lists.emplace_back(recorder, std::vector<const BaseNode*>());
        list = std::prev(lists.end());
      }
      list->second.push_back(object);
    }
    return lists;
  }
  std::vector<u32> FlagsOf(const BaseNode& object) const {
    const auto flags = mFlags.find(&object);
    return flags == mFlags.end() ? std::vector<u32>{0} : flags->second;
  }
  static std::string EntryText(const std::string& name, u32 flags) {
    return flags == 0 ? Quoted(name)
                      : fmt::format(R"({{ "node": {}, "flags": {} }})", Quoted(name), flags);
  }
  /// Whether a cacher of a kind takes over a parameter of its server.
  static bool TakesOver(const NodeKind& kind, const Passed& passed) {
    const bool isParticles = kind.id == ParticleCacher::Kind().id;
    return passed.cacher != cache_row::kFormat ||
           isParticles == (passed.server == setup::kParticleFormat);
  }
  /// What a cacher says beside its mode. The files of a recorder are where that one says.
  std::string Settings(const BaseNode& server, const NodeKind& kind, const BaseNode* recorder) {
    std::string settings = recorder ? FilesOf(*recorder) : "";
    const ParameterTable& own = ParametersOf(*FindKind(kServerNode));
    bool hasBaseName = false;
    // Two caches of one folder would write over each other's files.
    const InterfaceHandler parameters(const_cast<BaseNode*>(&server));
    const bool needsNumber = mCachers[kind.id] > 0 && parameters.GetLong(setup::kMode) != 0;
    const std::string number = needsNumber ? fmt::format("{}_", mCachers[kind.id] + 1) : "";
    for (const Passed& passed : kPassed) {
      const Value* value = server.Get(passed.server);
      if (!TakesOver(kind, passed) || (recorder && TellsFiles(passed.cacher)) || !value ||
          *value == FindRow(own, passed.server)->creation)
        continue;
      const bool isName = passed.cacher == cache_row::kBaseName;
      const std::string* name = std::get_if<std::string>(value);
      hasBaseName = hasBaseName || isName;
      // Files of grids and of particles end alike.
      const bool isTaken = kind.id == ParticleCacher::Kind().id;
      settings +=
          fmt::format(", \"{}\": {}", RowOf(kind.id, passed.cacher).name,
                      isName && name ? Quoted(*name + (isTaken ? "particles_" : "") + number)
                                     : Word(kind.id, passed.cacher, *value));
    }
    if (!hasBaseName && needsNumber)
      settings += fmt::format(", \"{}\": \"{}_{}\"", RowOf(kind.id, cache_row::kBaseName).name,
                              kind.type, number);
    return settings;
  }
  static bool TellsFiles(i32 row) {
    return row == cache_row::kFolder || row == cache_row::kCustomFolder ||
           row == cache_row::kBaseName || row == cache_row::kFormat || row == cache_row::kNumbering;
  }
  /// What a cacher says in the file of where its own files are and what they are called.
  std::string FilesOf(const BaseNode& cacher) const {
    std::string text;
    ForEachParameter(cacher, [&](const ParameterRow& row, const JsonMember& member) {
      if (TellsFiles(row.id) || row.name == "digits")
        text += fmt::format(", {}: {}", Quoted(member.key), RawOf(member.value));
    });
    return text;
  }
  /// Calls f(row, member) for each parameter that the file gives a node.
  template <class F>
  void ForEachParameter(const BaseNode& node, F&& f) const {
    const JsonValue* parameters = mPlaces.at(&node)->Find("parameters");
    if (!parameters) return;
    for (const JsonMember& member : *parameters->Members())
      for (const ParameterRow& row : ParametersOf(*FindKind(node.Type())))
        if (row.name == member.key || std::to_string(row.id) == member.key) f(row, member);
  }
  static const ParameterRow& RowOf(i32 kind, i32 id) {
    return *FindRow(ParametersOf(*FindKind(kind)), id);
  }
  /// A value as the scene file writes it, a word where there is one.
  static std::string Word(i32 kind, i32 id, const Value& value) {
    const ParameterRow& row = RowOf(kind, id);
    if (const i32* whole = std::get_if<i32>(&value))
      if (const Choice* choice = ChoiceOf(row, *whole)) return Quoted(std::string(choice->name));
    return ValueJson(row, value).dump();
  }

  /// Lines at the end of a list that isn't empty.
  void Append(const JsonValue& list, const std::vector<std::string>& lines) {
    const JsonValue& last = list.Items()->back();
    const std::string indent = mEdits.IndentOf(last);
    std::string text;
    for (const std::string& line : lines) text += indent + line + "\n";
    mEdits.InsertBehind(last, ",");
    mEdits.InsertLines(list, text);
  }

  // ---- a server that plays --------------------------------------------------------------------

  void AddServer(const BaseNode& server, const std::vector<const BaseNode*>& objects) {
    const std::string name = NewName("Cache");
    std::vector<std::string> lines = {
        "// Plays what was recorded, beside the server that simulates it.",
        fmt::format(R"({{ "type": "server", "name": {}, "parameters": {{ {} }}, "children": [)",
                    Quoted(name), ServerParameters(server))};
    std::map<const BaseNode*, std::string> names;
    for (const BaseNode* object : objects) {
      names[object] = NewName(object->Name() + std::string(setup::kCopySuffix));
    }
    for (const BaseNode* object : objects) lines.push_back("  " + CopyOf(*object, names) + ",");
    const std::string does = fmt::format("in the new server \"{}\" plays", name);
    for (const std::string& line : CacherNodes(server, objects, names, cache_row::kPlayBack, does))
      lines.push_back("  " + line);
    lines.emplace_back("] }");
    Append(mNodes, lines);
  }

  /// The parameters that the file gives a server, with one substep and without what sets up caches.
  std::string ServerParameters(const BaseNode& server) const {
    std::string text = R"("extra_substeps": 0, "extra_min_substeps": 0)";
    ForEachParameter(server, [&](const ParameterRow& row, const JsonMember& member) {
      const bool isSetUp = row.id >= setup::kFirst && row.id <= setup::kLast;
      const bool isSteps = row.id == MELDO_SULVA::server_row::kExtraSubsteps ||
                           row.id == MELDO_SULVA::server_row::kExtraMinSubsteps;
      if (!isSetUp && !isSteps)
        text += fmt::format(", {}: {}", Quoted(member.key), RawOf(member.value));
    });
    return text;
  }
  /// A node under another name and without children. What makes polygons makes none of its own
  /// there, and is copied without its parameters.
  std::string CopyOf(const BaseNode& node, const std::map<const BaseNode*, std::string>& names) {
    const bool isPlain = CacherFor(node.Type())->id == MeshCacher::Kind().id;
    std::string text = fmt::format("{{ \"name\": {}", Quoted(names.at(&node)));
    for (const JsonMember& member : *mPlaces.at(&node)->Members()) {
      if (member.key == "name" || member.key == "children") continue;
      if (member.key != "parameters")
        text += fmt::format(", {}: {}", Quoted(member.key), RawOf(member.value));
      else if (!isPlain)
        text += fmt::format(R"(, "parameters": {{ {} }})", CopiedParameters(node, names));
    }
    return text + " }";
  }
  /// The parameters of a copy. Its links lead to copies, since other nodes aren't in its server.
  std::string CopiedParameters(const BaseNode& node,
                               const std::map<const BaseNode*, std::string>& names) {
    std::string text, left;
    ForEachParameter(node, [&](const ParameterRow& row, const JsonMember& member) {
      const bool isList = row.type == ParameterType::Links;
      std::string value;
      if (isList || row.type == ParameterType::Link) {
        for (const auto& [target, flags] : Entries(node, row.id))
          if (const auto copy = names.find(target); copy != names.end())
            value += (value.empty() ? "" : ", ") + EntryText(copy->second, flags);
        if (value.empty() && !Entries(node, row.id).empty())
          left += (left.empty() ? "" : ", ") + std::string(row.name);
        if (isList && !value.empty()) value = "[" + value + "]";
      } else {
        value = RawOf(member.value);
      }
      if (!value.empty())
        text += fmt::format("{}{}: {}", text.empty() ? "" : ", ", Quoted(member.key), value);
    });
    if (!left.empty())
      mNotes.push_back(fmt::format("{}: its copy is without {}, which leads to what doesn't play",
                                   KindAndName(node), left));
    return text;
  }
  /// The text of a value; of a number or a word too.
  std::string RawOf(const JsonValue& value) const {
    if (value.Text() || value.Items() || value.Members()) return mEdits.Raw(value);
    const std::size_t at = mEdits.Begin(value);
    return std::string(mText.substr(at, mText.find_first_of(" \t\r\n,]}/", at) - at));
  }

  std::string_view mText;
  TextEdits mEdits;
  const LoadedScene& mScene;
  const JsonValue& mNodes;
  std::map<const BaseNode*, const JsonValue*> mPlaces;
  std::map<const BaseNode*, const BaseNode*> mCachedBy;
  std::map<const BaseNode*, std::vector<u32>> mFlags;  ///< of what servers name
  std::set<std::string> mTaken;
  std::map<i32, int> mCachers;  ///< of each kind
  std::vector<std::string> mNotes;
};

}  // namespace

void CheckCacheable(const BaseNode& node) {
  if (!CacherFor(node.Type()))
    throw CommandError(kExitUsage,
                       fmt::format("{} can't be cached; expected a field, a volume, a flow, a "
                                   "group of particles or a mesher",
                                   KindAndName(node)));
}

CacheSetup SetUpCaches(std::string_view text, const JsonValue& root, const LoadedScene& scene) {
  return Setup(text, root, scene).Run();
}

}  // namespace MELDO_GLOBAL::app
