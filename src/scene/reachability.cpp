#include "scene/reachability.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <tuple>

#include "cache/cache_rows.h"
#include "fluids/emission/grid_cell_emitter.h"
#include "fluids/emission/object_grid_emitter.h"
#include "fluids/emission/particle_to_grid_emitter.h"
#include "fluids/mesh/multi_mesh.h"
#include "fluids/operators/particle_converter.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/volume/multi_volume.h"
#include "fluids/volume/volume_mesh.h"
#include "nodes/catalogue.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

/// What is wrong where nothing stands under a row that its node can't do without.
std::string TextWithout(const ParameterRow& row) {
  std::string thing(row.name);
  std::replace(thing.begin(), thing.end(), '_', ' ');
  return fmt::format("it has no {}; name {} under '{}'", thing,
                     row.type == ParameterType::Links ? "some" : "one", row.name);
}

/// Stages in which the pipeline runs objects.
bool RunsObjects(i32 stage) {
  return (stage > kInitialiseSubstep && stage < kFinish && stage != kCalculateBounds) ||
         (stage >= kStartVisual && stage <= kVisualPost);
}

}  // namespace

class ReachFinder {
 public:
  ReachFinder(const Document& document, const std::vector<BaseNode*>& servers,
              const std::set<NodeId>& exported, const std::map<NodeId, std::string>& empty,
              Reachability& reach)
      : mDocument(document), mExported(exported), mEmpty(empty), mReach(reach) {
    for (const BaseNode* root : document.Roots()) NoteReaders(*root);
    for (const BaseNode* server : servers) {
      ForEachChild(*server, [&](const BaseNode& node) { NoteTakers(*server, node); });
      ForEachChild(*server, [&](const BaseNode& node) {
        mServerOf[node.Id()] = server;
        mReach.mNodes[node.Id()];
      });
    }
    for (const BaseNode* server : servers) {
      if (!server->IsEnabled())
        Find(*server, "enabled", "it is switched off: none of its nodes runs");
      if (servers.size() > 1 && server->Children().empty())
        Find(*server, "", "it has no nodes: there is nothing to simulate", true);
      ForEachChild(*server, [&](const BaseNode& node) { LookAt(node); });
      LookAtFields(*server);
    }
  }

 private:
  struct Target {
    const BaseNode* node;
    const ParameterRow* row;
    int entry;
    u32 flags = 0;
  };

  template <class F>
  static void ForEachChild(const BaseNode& parent, F&& visit) {
    for (const BaseNode* child : parent.Children()) {
      visit(*child);
      ForEachChild(*child, visit);
    }
  }

  /// What a node names, parameter by parameter.
  std::vector<Target> TargetsOf(const BaseNode& node) const {
    std::vector<Target> targets;
    if (!node.Table()) return targets;
    for (const ParameterRow& row : *node.Table()) {
      const Value* value = node.Get(row.id);
      if (!value) continue;
      const auto add = [&](NodeId id, int entry, u32 flags = 0) {
        if (const BaseNode* target = mDocument.Find(id))
          targets.push_back({target, &row, entry, flags});
      };
      if (const Link* link = std::get_if<Link>(value)) add(link->node, -1);
      if (const auto* list = std::get_if<InExcludeData>(value))
        for (std::size_t i = 0; i < list->entries.size(); ++i)
          add(list->entries[i].node, static_cast<int>(i), list->entries[i].flags);
    }
    return targets;
  }

  void NoteReaders(const BaseNode& node) {
    const auto note = [&](const BaseNode& reader) {
      for (const Target& target : TargetsOf(reader)) {
        std::vector<const BaseNode*>& readers = mReach.mNodes[target.node->Id()].readers;
        if (std::find(readers.begin(), readers.end(), &node) == readers.end())
          readers.push_back(&node);
      }
    };
    if (node.IsEnabled()) {
      note(node);
      if (const BaseNode* tag = node.Tag(kObstacleTag)) note(*tag);
    }
    for (const BaseNode* child : node.Children()) NoteReaders(*child);
  }

  /// Lists that are left open take whatever fits.
  void NoteTakers(const BaseNode& server, const BaseNode& node) {
    if (!node.IsEnabled() || !node.Table()) return;
    for (const ParameterRow& row : *node.Table()) {
      if (!row.allWhenAbsent || node.Get(row.id)) continue;
      ForEachChild(server, [&](const BaseNode& target) {
        if (std::find(row.accepts.begin(), row.accepts.end(), target.Type()) == row.accepts.end())
          return;
        std::vector<const BaseNode*>& readers = mReach.mNodes[target.Id()].readers;
        if (std::find(readers.begin(), readers.end(), &node) == readers.end())
          readers.push_back(&node);
      });
    }
  }

  /// A mesh of which rigid bodies are made.
  bool HoldsBodies(const BaseNode& node) const {
    if (node.Type() != Mesh::Kind().id && node.Type() != MultiMesh::Kind().id) return false;
    const std::vector<Target> objects = TargetsOf(node);
    return std::any_of(objects.begin(), objects.end(),
                       [](const Target& target) { return target.node->Tag(kObstacleTag); });
  }

  void LookAt(const BaseNode& node) {
    const NodeKind* kind = FindKind(node.Type());
    if (!kind || !node.Table()) return;
    WhyIdle(node);
    if (!node.IsEnabled()) return;
    LookAtLinks(node);
    LookAtStage(node, *kind);
    NodeReach& reach = mReach.mNodes[node.Id()];
    if (!kind->OnlyServes() || node.Tag(kObstacleTag) || HoldsBodies(node) || WidensBounds(node) ||
        mExported.contains(node.Id()) || !reach.readers.empty())
      return;
    reach.isUnread = true;
    Find(node, "", "no node that is switched on reads it, so that it changes nothing", true);
  }

  /// Notes the fields that nothing looks at, all in one. Where nothing of a server leaves the
  /// program, its statistics are what is meant.
  void LookAtFields(const BaseNode& server) {
    std::vector<const BaseNode*> unread;
    bool leaves = false;
    ForEachChild(server, [&](const BaseNode& node) {
      const NodeKind* kind = FindKind(node.Type());
      if (!kind || !node.IsEnabled()) return;
      const std::vector<const BaseNode*>& readers = mReach.mNodes[node.Id()].readers;
      leaves = leaves || mExported.contains(node.Id()) ||
               std::any_of(readers.begin(), readers.end(), IsOutside);
      if (kind->list == kListChannels && !IsReadField(node)) unread.push_back(&node);
    });
    if (unread.empty() || !leaves) return;
    std::string others;
    for (const BaseNode* field : unread) {
      mReach.mNodes[field->Id()].isUnread = true;
      if (field != unread.front()) others += (others.empty() ? ", nor " : ", ") + Named(*field);
    }
    Find(*unread.front(), "",
         fmt::format(
             "no working node, export or picture reads it{}: the statistics alone tell of {}",
             others, others.empty() ? "it" : "them"),
         true);
  }

  /// Pictures and recordings.
  static bool IsOutside(const BaseNode* reader) {
    const NodeKind* kind = FindKind(reader->Type());
    if (reader->Type() == kServerNode) return false;
    return !kind || kind->list == 0 || Records(*reader, *kind);
  }

  static bool Records(const BaseNode& node, const NodeKind& kind) {
    const Value* mode = kind.list == kListCaches ? node.Get(cache_row::kMode) : nullptr;
    return mode && LongOf(*mode, cache_row::kPlayBack) != cache_row::kPlayBack;
  }

  /// Someone looks at a field, by itself or as a member of a group, who doesn't only change it.
  bool IsReadField(const BaseNode& field) {
    for (const BaseNode* named : {&field, static_cast<const BaseNode*>(field.Parent())}) {
      if (mExported.contains(named->Id())) return true;
      const std::vector<const BaseNode*> readers = mReach.mNodes[named->Id()].readers;
      for (const BaseNode* reader : readers) {
        if (IsOutside(reader)) return true;
        if (mServerOf.contains(reader->Id()) && !WhyIdle(*reader).empty()) continue;
        for (const Target& target : TargetsOf(*reader))
          if (target.node == named && IsReadBy(*reader, *target.row)) return true;
      }
    }
    return false;
  }

  static bool IsReadBy(const BaseNode& reader, const ParameterRow& row) {
    if (reader.Type() == kServerNode) return false;
    return !row.writes || row.readsToo;
  }

  /// Volumes may be there for the space alone that the simulation has to cover.
  static bool WidensBounds(const BaseNode& node) {
    if (!IsA<VolumeMesh>(node) && !IsA<MultiVolume>(node)) return false;
    constexpr i32 kRow = VolumeMesh::kAffectsBoundsRow;
    const Value* value = node.Get(kRow);
    return node.Tracks().contains(kRow) || (value && LongOf(*value, 0) != 0);
  }

  /// Links to nodes that their holder doesn't see.
  void LookAtLinks(const BaseNode& node) {
    std::set<std::tuple<const ParameterRow*, NodeId, u32>> seen;
    for (const Target& target : TargetsOf(node)) {
      if (!seen.insert({target.row, target.node->Id(), target.flags}).second)
        Find(
            node, target.row->name,
            fmt::format("'{}': {} stands in the list twice", target.row->name, Named(*target.node)),
            false, target.entry);
      if (const std::string why = WhyUnseen(node, *target.node); !why.empty())
        Find(node, target.row->name, fmt::format("'{}': {}", target.row->name, why), false,
             target.entry);
    }
  }

  /// " with 'group', above it", where that is what was switched off.
  static std::string WithWhom(const BaseNode& node) {
    const BaseNode* top = nullptr;
    for (const BaseNode* above = node.Parent(); above; above = above->Parent())
      if (!above->IsEnabled()) top = above;
    return top ? fmt::format(" with {}, above it", Named(*top)) : "";
  }

  std::string WhyUnseen(const BaseNode& node, const BaseNode& target) const {
    if (!FindKind(target.Type())) return {};
    const auto server = mServerOf.find(target.Id());
    if (server == mServerOf.end()) return {};
    if (server->second != mServerOf.at(node.Id()))
      return Named(target) +
             " belongs to another server; a node sees those of its own server alone";
    return target.IsEnabled()
               ? ""
               : fmt::format("{} is switched off{}", Named(target), WithWhom(target));
  }

  /// One stage takes the place of all that a node works in.
  void LookAtStage(const BaseNode& node, const NodeKind& kind) {
    const Value* value = node.Get(common_row::kStage);
    const i32 stage = value ? LongOf(*value, 0) : 0;
    if (stage <= 0 || stage >= kStageCount || kind.stages.empty()) return;
    if (kind.list == kListGeometry && stage > kVolumes && RunsObjects(stage) &&
        !mReach.mNodes[node.Id()].readers.empty())
      Find(node, FindRow(*node.Table(), common_row::kStage)->name,
           fmt::format("'stage': it takes shape in stage {}, behind stage {} ({}), in which boxes "
                       "follow shapes: who reads it finds that of the step before",
                       stage, i32{kCalculateBounds}, kPipeline[kCalculateBounds].name));
    if (kind.stages.size() < 2) return;
    std::string own;
    for (const i32 each : kind.stages) own += fmt::format("{}{}", own.empty() ? "" : ", ", each);
    Find(
        node, FindRow(*node.Table(), common_row::kStage)->name,
        fmt::format("'stage': it works in the stages {}; in stage {} alone the rest of its work is "
                    "left out",
                    own, stage));
  }

  std::string StandsInNoStage(const BaseNode& node, const NodeKind& kind) {
    const Value* value = node.Get(common_row::kStage);
    const i32 stage = value ? LongOf(*value, 0) : 0;
    if (stage <= 0 || stage >= kStageCount || node.Tracks().contains(common_row::kStage)) return {};
    if (RunsObjects(stage) || kind.stages.empty()) return {};
    const std::string text =
        fmt::format("no node runs in stage {} ({})", stage, kPipeline[stage].name);
    Find(node, FindRow(*node.Table(), common_row::kStage)->name,
         fmt::format("it never works: 'stage': {}", text));
    return text;
  }

  /// Why a node never works; empty where it may.
  const std::string& WhyIdle(const BaseNode& node) {
    NodeReach& reach = mReach.mNodes[node.Id()];
    // Whoever leads back to a node that is being looked at is taken to work.
    if (!mSeen.insert(node.Id()).second) return reach.whyIdle;
    reach.whyIdle = FindCause(node);
    return reach.whyIdle;
  }

  std::string FindCause(const BaseNode& node) {
    if (!node.IsEnabled()) return "it is switched off" + WithWhom(node);
    const NodeKind* kind = FindKind(node.Type());
    if (!kind) return {};
    std::string cause;
    // What plays needs no source.
    if (kind->list == kListGeometry && IsPlayed(node)) return {};
    for (const ParameterRow& row : *node.Table())
      if (cause.empty() && (row.required || row.restsWhereDead)) cause = Lacks(node, row);
    if (cause.empty()) cause = StandsInNoStage(node, *kind);
    if (cause.empty()) cause = LacksShape(node);
    if (cause.empty() && kind->list == kListSolvers) cause = LacksContent(node, "move", true);
    // Where there is a solver, it is told of for all.
    if (cause.empty() && WorksOnField(node, *kind))
      cause = LacksContent(node, "work on",
                           !HasSolver(node) && mToldEmpty.insert(mServerOf.at(node.Id())).second);
    if (cause.empty() && kind->list == kListForces) cause = LacksSolver(node);
    return cause;
  }

  std::string Lacks(const BaseNode& node, const ParameterRow& row) {
    std::string cause;
    bool isGiven = false;
    for (const Target& target : TargetsOf(node)) {
      if (target.row != &row) continue;
      isGiven = true;
      std::string why = WhyUnseen(node, *target.node);
      if (why.empty() && mServerOf.contains(target.node->Id()))
        if (const std::string& idle = WhyIdle(*target.node); !idle.empty())
          why = fmt::format("{} never works: {}", Named(*target.node), idle);
      if (why.empty()) return {};
      if (cause.empty()) cause = fmt::format("its '{}': {}", row.name, why);
    }
    if (isGiven || !row.required) return cause;
    const bool takesAll = row.allWhenAbsent && !node.Get(row.id);
    if (takesAll && MayTakeOne(node, row)) return {};
    const std::string text =
        takesAll
            ? fmt::format("there is none in its server that '{}', left open, could take", row.name)
            : TextWithout(row);
    Find(node, row.name, fmt::format("it never works: {}", text));
    return text;
  }

  /// Emitters from whose shape nothing comes, and fluids into whose box nothing does.
  std::string LacksShape(const BaseNode& node) {
    const auto found = mEmpty.find(node.Id());
    if (found == mEmpty.end()) return {};
    if (IsA<FluidSolver>(node)) {
      Find(node, "", fmt::format("it never works: {}", found->second));
      return found->second;
    }
    const i32 row = IsA<ParticleToGridEmitter>(node) ? i32{ParticleToGridEmitter::kSourceRow}
                                                     : i32{ObjectGridEmitter::kVolumeRow};
    Find(node, FindRow(*node.Table(), row)->name, fmt::format("it never works: {}", found->second));
    return found->second;
  }

  /// Whether a node that works could stand in a list that is left open.
  bool MayTakeOne(const BaseNode& node, const ParameterRow& row) {
    return std::any_of(mServerOf.begin(), mServerOf.end(), [&](const auto& other) {
      const BaseNode* target = mDocument.Find(other.first);
      return other.second == mServerOf.at(node.Id()) &&
             std::find(row.accepts.begin(), row.accepts.end(), target->Type()) !=
                 row.accepts.end() &&
             WhyIdle(*target).empty();
    });
  }

  /// Whether a node changes a field, which has no cells before something comes into its scene.
  bool WorksOnField(const BaseNode& node, const NodeKind& kind) const {
    if (kind.list != kListOperators && !IsA<Grid_CellEmitter>(node)) return false;
    const std::vector<Target> targets = TargetsOf(node);
    return std::any_of(targets.begin(), targets.end(), [](const Target& target) {
      const NodeKind* held = FindKind(target.node->Type());
      return target.row->writes && held && held->list == kListChannels;
    });
  }

  bool HasSolver(const BaseNode& node) const {
    return std::any_of(mServerOf.begin(), mServerOf.end(), [&](const auto& other) {
      const BaseNode* solver = mDocument.Find(other.first);
      const NodeKind* kind = FindKind(solver->Type());
      return other.second == mServerOf.at(node.Id()) && kind && kind->list == kListSolvers &&
             solver->IsEnabled();
    });
  }

  /// Solvers and operators work on what something else brings: emitters, recordings, and volumes
  /// that are there for the space. `verb` is what one of them has nothing to do that with.
  std::string LacksContent(const BaseNode& worker, std::string_view verb, bool tells) {
    const BaseNode* emitter = nullptr;
    bool isToldElsewhere = false;
    for (const auto& [id, server] : mServerOf) {
      if (server != mServerOf.at(worker.Id())) continue;
      const BaseNode& node = *mDocument.Find(id);
      const NodeKind* kind = FindKind(node.Type());
      if (!kind) continue;
      const bool brings = (kind->list == kListEmitters && !IsA<Grid_CellEmitter>(node)) ||
                          Plays(node, *kind) || WidensBounds(node) || IsA<ParticleConverter>(node);
      if (!brings) continue;
      const std::string& why = WhyIdle(node);
      if (why.empty()) return {};
      if (kind->list != kListEmitters) continue;
      if (!emitter) emitter = &node;
      isToldElsewhere = isToldElsewhere || node.IsEnabled();
    }
    if (!emitter) {
      constexpr std::string_view text = "there is no emitter that fills anything";
      if (tells) Find(worker, "", fmt::format("it has nothing to {}: {}", verb, text), true);
      return std::string(text);
    }
    std::string text =
        fmt::format("{}, which would fill it, never works: {}", Named(*emitter), WhyIdle(*emitter));
    if (tells && !isToldElsewhere)
      Find(worker, "", fmt::format("it has nothing to {}: {}", verb, text));
    return text;
  }

  static bool Plays(const BaseNode& node, const NodeKind& kind) {
    const Value* mode = node.Get(cache_row::kMode);
    return kind.list == kListCaches &&
           (!mode || LongOf(*mode, cache_row::kPlayBack) != cache_row::kRecord);
  }

  /// Whether a cache that plays feeds a node.
  bool IsPlayed(const BaseNode& node) {
    return std::any_of(mServerOf.begin(), mServerOf.end(), [&](const auto& other) {
      const BaseNode* cache = mDocument.Find(other.first);
      const NodeKind* kind = cache ? FindKind(cache->Type()) : nullptr;
      if (!kind || !Plays(*cache, *kind) || !cache->IsEnabled()) return false;
      const auto targets = TargetsOf(*cache);
      return std::any_of(targets.begin(), targets.end(),
                         [&](const Target& target) { return target.node == &node; });
    });
  }

  /// Forces act where a solver that works names them; without a list it takes all of its server.
  std::string LacksSolver(const BaseNode& node) {
    std::string idle;
    for (const auto& [id, server] : mServerOf) {
      if (server != mServerOf.at(node.Id())) continue;
      const BaseNode* solver = mDocument.Find(id);
      const NodeKind* kind = solver ? FindKind(solver->Type()) : nullptr;
      if (!kind || kind->list != kListSolvers || !solver->IsEnabled()) continue;
      const auto row =
          std::find_if(solver->Table()->begin(), solver->Table()->end(), [](const ParameterRow& r) {
            return std::any_of(r.acceptsAny.begin(), r.acceptsAny.end(),
                               [](auto& group) { return group.list == kListForces; });
          });
      if (row == solver->Table()->end()) continue;
      const Value* value = solver->Get(row->id);
      const auto* list = value ? std::get_if<InExcludeData>(value) : nullptr;
      const auto isThis = [&](const InExcludeData::Entry& entry) {
        return entry.node == node.Id();
      };
      if (list && std::none_of(list->entries.begin(), list->entries.end(), isThis)) continue;
      const std::string& why = WhyIdle(*solver);
      if (why.empty()) return {};
      idle = fmt::format("{} never works: {}", Named(*solver), why);
    }
    if (!idle.empty()) return idle;
    // Other operators may drive forces too.
    for (const BaseNode* reader : mReach.mNodes[node.Id()].readers) {
      const NodeKind* kind = FindKind(reader->Type());
      if (kind && kind->list != kListSolvers && kind->list != kListCaches) return {};
    }
    constexpr std::string_view text = "no solver that runs names it under 'forces'";
    Find(node, "", fmt::format("it never works: {}", text));
    return std::string(text);
  }

  void Find(const BaseNode& node, std::string_view row, std::string text, bool isNote = false,
            int entry = -1) {
    mReach.mFindings.push_back({&node, row, entry, std::move(text), isNote});
  }

  const Document& mDocument;
  const std::set<NodeId>& mExported;
  const std::map<NodeId, std::string>& mEmpty;
  Reachability& mReach;
  std::map<NodeId, const BaseNode*> mServerOf;
  std::set<NodeId> mSeen;
  std::set<const BaseNode*> mToldEmpty;  ///< servers without content
};

Reachability::Reachability(const Document& document, const std::vector<BaseNode*>& servers,
                           const std::set<NodeId>& exported,
                           const std::map<NodeId, std::string>& empty) {
  ReachFinder(document, servers, exported, empty, *this);
}

const NodeReach* Reachability::Of(NodeId node) const {
  const auto found = mNodes.find(node);
  return found == mNodes.end() ? nullptr : &found->second;
}

std::set<NodeId> Reachability::Idle() const {
  std::set<NodeId> idle;
  for (const auto& [id, reach] : mNodes)
    if (!reach.MayWork()) idle.insert(id);
  return idle;
}

}  // namespace MELDO_GLOBAL::app
