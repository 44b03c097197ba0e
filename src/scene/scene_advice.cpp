#include "scene/scene_advice.h"

#include <fmt/format.h>

#include <algorithm>

#include "fluids/emission/alignment_vector.h"
#include "framework/server_rows.h"
#include "nodes/catalogue.h"
#include "scene/parameter_text.h"

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

constexpr double kMostCellsInAUnit = 100000;

double RealOf(const BaseNode& node, i32 id) {
  const Value* value = node.Get(id);
  const double* real = value ? std::get_if<double>(value) : nullptr;
  return real ? *real : std::get<double>(FindRow(*node.Table(), id)->creation);
}

/// Why a parameter doesn't count in its node's mode; empty where it does, or where keys change the
/// mode on the way. A mode that doesn't count itself has none of its values.
std::string WhyUnused(const BaseNode& node, const ParameterRow& row) {
  for (const ParameterRow* by = &row; by->condition;) {
    if (node.Tracks().contains(by->condition->id)) return {};
    const ParameterRow* mode = FindRow(*node.Table(), by->condition->id);
    if (by->condition->values.empty()) {
      const auto* link =
          std::get_if<Link>(node.Get(mode->id) ? node.Get(mode->id) : &mode->creation);
      const BaseNode* taken = link ? node.GetDocument().Find(link->node) : nullptr;
      if (!taken || !taken->IsEnabled()) return {};
      return fmt::format("'{}' has no effect while '{}' is given, which takes its place", row.name,
                         mode->name);
    }
    const Value* value = node.Get(mode->id);
    const i32* now = std::get_if<i32>(value ? value : &mode->WhenMissing());
    const std::vector<i32>& counts = by->condition->values;
    if (now && std::find(counts.begin(), counts.end(), *now) == counts.end())
      return fmt::format("'{}' has no effect while '{}' is {}; it counts {}", row.name, mode->name,
                         WordFor(*mode, *now), ConditionText(*node.Table(), *by));
    by = mode;
  }
  return {};
}

void NoteUnused(SceneContext& context, const BaseNode& node, const JsonValue* given,
                const Subject& subject) {
  if (!given || !node.Table()) return;
  for (const JsonMember& member : *given->Members())
    if (const ParameterRow* row = RowNamed(*node.Table(), member.key))
      if (const std::string why = WhyUnused(node, *row); !why.empty())
        context.Note(member, subject, why);
}

/// Collects what a scene sets and nothing reads, to be told in one note.
class KeptParameters {
 public:
  void Add(const BaseNode& node, const ParameterTable* table, const JsonValue* given) {
    if (!table || !given || !given->Members()) return;
    for (const JsonMember& member : *given->Members())
      if (const ParameterRow* row = RowNamed(*table, member.key))
        if (const std::string name = WithoutEffect(node, *row);
            !name.empty() && !IsAsNew(node, *row)) {
          if (!mFirst) mFirst = &member;
          AddName(name);
        }
  }
  void Add(const GivenOption& given) {
    const std::string name = WithoutEffect(*given.node, *given.row);
    if (name.empty()) return;
    if (!mFirst && mOption.empty()) mOption = given.option;
    AddName(name);
  }
  void Tell(SceneContext& context) const {
    if (mNames.empty()) return;
    context.SetOption(mFirst ? std::string() : mOption);
    std::string names;
    for (const std::string& name : mNames) names += (names.empty() ? "" : ", ") + name;
    context.Note(mFirst ? *mFirst : JsonMember{}, "",
                 "set, kept with the scene, but without effect: " + names);
    context.SetOption({});
  }

 private:
  /// What a new node holds is meant by nobody.
  static bool IsAsNew(const BaseNode& node, const ParameterRow& row) {
    const Value* value = node.Get(row.id);
    return value && !node.Tracks().contains(row.id) && *value == row.creation;
  }
  /// What of a parameter nothing reads, by name: itself, the flags of its list, or nothing.
  static std::string WithoutEffect(const BaseNode& node, const ParameterRow& row) {
    const std::string owner = Shown(node.Name());
    if (!row.HasEffect()) return fmt::format("'{}' of \"{}\"", row.name, owner);
    const Value* value = node.Get(row.id);
    const auto* list = value ? std::get_if<InExcludeData>(value) : nullptr;
    if (!list || row.readsFlags) return {};
    const bool hasFlags = std::any_of(list->entries.begin(), list->entries.end(),
                                      [](const auto& entry) { return entry.flags != 0; });
    return hasFlags ? fmt::format("'kinds' under '{}' of \"{}\"", row.name, owner) : "";
  }
  void AddName(const std::string& name) {
    if (std::find(mNames.begin(), mNames.end(), name) == mNames.end()) mNames.push_back(name);
  }

  const JsonMember* mFirst = nullptr;  ///< has the place of the note; null: the option has
  std::string mOption;
  std::vector<std::string> mNames;
};

/// Fields, settings, emitters, operators and meshes stand nowhere, and the box of a solver has no
/// turn. The place of a volume is a centre for alignments alone.
void NotePlacement(SceneContext& context, const MadeNode& made, bool hasAlignment) {
  using namespace MELDO_SULVA;
  const NodeKind* kind = FindKind(made.node->Type());
  if (!kind || !made.value->Members()) return;
  const bool isSolver = kind->list == kListSolvers;
  const bool isNowhere = kind->list == kListChannels || kind->list == kListSettings ||
                         kind->list == kListEmitters || kind->list == kListOperators ||
                         (kind->list == kListGeometry && !hasAlignment);
  if (!isSolver && !isNowhere) return;
  for (const JsonMember& member : *made.value->Members())
    if ((member.key == "position" && isNowhere) || member.key == "rotation" ||
        member.key == "scale")
      context.Note(member, made.subject, fmt::format("'{}' has no effect on it", member.key));
}

void WarnOfSmallCells(SceneContext& context, const MadeNode& made) {
  const double cell = RealOf(*made.node, MELDO_SULVA::server_row::kCellSize);
  const double cells = RealOf(*made.node, MELDO_SULVA::server_row::kSimulationUnits) / cell;
  if (!(cells > kMostCellsInAUnit)) return;
  context.Warning(*made.value, made.subject,
                  fmt::format("'cell_size': the cells are very small: {} m, {:.0f} of them along "
                              "'simulation_units'; make sure that this size is meant and that "
                              "there is memory enough",
                              cell, cells));
}

i32 WholeOf(const BaseNode& node, i32 id) {
  const Value* value = node.Get(id);
  const i32* whole = value ? std::get_if<i32>(value) : nullptr;
  return whole ? *whole : std::get<i32>(FindRow(*node.Table(), id)->creation);
}

void WarnOfReversedRange(SceneContext& context, const MadeNode& made) {
  using namespace MELDO_SULVA::server_row;
  if (WholeOf(*made.node, kUsePreviewRange) != 0) return;
  const i32 first = WholeOf(*made.node, kFirstFrame), last = WholeOf(*made.node, kLastFrame);
  if (first > last)
    context.Warning(*made.value, made.subject,
                    fmt::format("'first_frame': the range is reversed: {} lies behind {}; the "
                                "frames from {} to {} are taken",
                                first, last, last, first));
}

}  // namespace

void Advise(SceneContext& context, const std::vector<MadeNode>& nodes,
            const std::vector<GivenOption>& options) {
  KeptParameters kept;
  const bool hasAlignment = std::any_of(nodes.begin(), nodes.end(), [](const MadeNode& made) {
    return MELDO_SULVA::IsA<MELDO_SULVA::AlignmentVector3D>(*made.node);
  });
  for (const MadeNode& made : nodes) {
    NoteUnused(context, *made.node, made.parameters, made.subject);
    NotePlacement(context, made, hasAlignment);
    kept.Add(*made.node, made.node->Table(), made.parameters);
    if (const BaseNode* tag = made.obstacle ? made.node->Tag(kObstacleTag) : nullptr) {
      NoteUnused(context, *tag, made.obstacle, made.subject + "obstacle: ");
      kept.Add(*made.node, tag->Table(), made.obstacle);
    }
    if (made.node->Type() != kServerNode) continue;
    WarnOfSmallCells(context, made);
    WarnOfReversedRange(context, made);
  }
  for (const GivenOption& given : options) {
    kept.Add(given);
    const std::string why = WhyUnused(*given.node, *given.row);
    if (why.empty()) continue;
    context.SetOption(given.option);
    context.Note(JsonMember{}, given.subject, why);
    context.SetOption({});
  }
  kept.Tell(context);
}

std::string FollowUnits(BaseNode& server, double oldUnits) {
  const double factor = RealOf(server, MELDO_SULVA::server_row::kSimulationUnits) / oldUnits;
  if (factor == 1) return {};
  for (const i32 id :
       {MELDO_SULVA::server_row::kCellSize, MELDO_SULVA::server_row::kRenderCellSize})
    server.Set(id, RealOf(server, id) * factor);
  return fmt::format("'cell_size' follows to {}, 'render_cell_size' to {}: as many cells as before",
                     RealOf(server, MELDO_SULVA::server_row::kCellSize),
                     RealOf(server, MELDO_SULVA::server_row::kRenderCellSize));
}

}  // namespace MELDO_GLOBAL::app
