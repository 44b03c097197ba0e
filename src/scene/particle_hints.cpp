#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "fluids/advection/particle_advection.h"
#include "fluids/emission/object_particle_grid_emitter.h"
#include "fluids/emission/object_particle_mesh_emitter.h"
#include "fluids/emission/particle_to_grid_emitter.h"
#include "fluids/forces/force_gravity.h"
#include "fluids/forces/force_grid_turbulence.h"
#include "fluids/operators/grid_to_particles.h"
#include "fluids/operators/particle_converter.h"
#include "fluids/operators/particle_forces.h"
#include "fluids/operators/pop_deform.h"
#include "fluids/operators/pop_flock.h"
#include "fluids/operators/pop_follow_spline.h"
#include "fluids/operators/pop_geometry.h"
#include "fluids/operators/pop_property.h"
#include "fluids/particles/particle_property.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/solvers/water_solver.h"
#include "fluids/surfaces/surface_reconstructor.h"
#include "scene/shape_boxes.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

using Move = ParticleAdvection;
using OnMesh = ObjectParticleMeshEmitter;

/// Groups of particles: who makes them, who moves them, and whom they serve.
class ParticleHints : public ShapeBoxes {
 public:
  using ShapeBoxes::ShapeBoxes;

  void LookAt(const BaseNode& server) {
    Collect(server);
    for (const BaseNode* node : mNodes) {
      const NodeKind* kind = FindKind(node->Type());
      if (kind && kind->list == kListSolvers) mSolvers.push_back(node);
    }
    for (const BaseNode* node : mNodes) {
      if (node->Type() == ParticleGroup::kNodeType) LookAtGroup(*node);
      if (!MayWork(*node)) continue;
      if (IsA<Move>(*node)) LookAtMotion(*node);
      if (IsA<WaterSolver>(*node)) {
        LookAtLiquid(*node);
        LookAtCorrection(*node);
        LookAtShared(*node);
      }
    }
  }

 private:
  using Nodes = std::vector<const BaseNode*>;
  /// Emitters and advections of a group by the kind of particles that they work on.
  using ByKind = std::map<i32, Nodes>;

  static bool IsEmitter(const BaseNode& node) {
    return IsA<ObjectParticleGridEmitter>(node) || IsA<OnMesh>(node);
  }
  static std::string_view NameOfKind(i32 kind) {
    return IsParticleKind(kind) ? kParticleKindRows[kind].name : "unknown";
  }
  static bool IsKeyed(const BaseNode& node, i32 row) { return node.Tracks().contains(row); }

  // ---- groups -----------------------------------------------------------------------------------

  /// The row that says what kind of a group's particles an operator of one kind works on; 0 for all
  /// else.
  static i32 KindRowOf(const BaseNode& node) {
    if (IsA<POP_Property>(node)) return POP_Property::kKindRow;
    if (IsA<POP_Flock>(node)) return POP_Flock::kKindRow;
    if (IsA<Pop_FollowSpline>(node)) return Pop_FollowSpline::kKindRow;
    if (IsA<POP_Geometry>(node)) return POP_Geometry::kKindRow;
    if (IsA<POP_Deform>(node)) return POP_Deform::kKindRow;
    return IsA<ParticleConverter>(node) ? i32{ParticleConverter::kSourceKindRow} : 0;
  }
  /// Whether a reader of a group works on its particles, by kinds that stand in its list of groups.
  static bool ListsKinds(const BaseNode& node) {
    return IsA<ParticleForces>(node) || IsA<GridToParticles>(node);
  }

  /// Whether one of the emitters gives what it makes an age.
  bool AnyHasAge(const std::vector<const BaseNode*>& emitters) const {
    return std::any_of(emitters.begin(), emitters.end(), [&](const BaseNode* emitter) {
      const std::set<NodeId> links = LinksOf(*emitter);
      return std::any_of(mNodes.begin(), mNodes.end(), [&](const BaseNode* node) {
        return IsA<Property<double>>(*node) && links.contains(node->Id()) &&
               Whole(*node, iProperty::kPropertyRow) == property_id::kAge;
      });
    });
  }

  void LookAtGroup(const BaseNode& group) {
    ByKind filled, moved;
    Nodes users;
    bool mayBeFilled = false, isRead = false;
    for (const BaseNode* reader : ReadersOf(group)) {
      if (reader->Type() == kServerNode || !MayWork(*reader)) continue;
      const NodeKind* kind = FindKind(reader->Type());
      if (IsFilledBy(group, *reader)) {
        filled[Whole(*reader, ParticleConverter::kTargetKindRow)].push_back(reader);
      } else if (IsEmitter(*reader)) {
        // Another group may come of this one.
        if (Linked(*reader, ParticleEmitter::kGroupRow) != &group) {
          isRead = true;
          continue;
        }
        filled[Whole(*reader, ParticleEmitter::kKindRow)].push_back(reader);
      } else if (IsA<Move>(*reader)) {
        moved[Whole(*reader, Move::kKindRow)].push_back(reader);
      } else if (IsA<Force_GridTurbulence>(*reader) || IsA<ParticleToGridEmitter>(*reader) ||
                 IsA<WaterSolver>(*reader) || IsSurfaceOf(*reader, group) || KindRowOf(*reader) ||
                 ListsKinds(*reader)) {
        users.push_back(reader);
      } else {
        // Caches may bring particles too.
        mayBeFilled = mayBeFilled || !kind || kind->list == kListCaches ||
                      kind->list == kListOperators || kind->list == kListSolvers;
      }
      isRead = true;
    }
    if (filled.empty() && !mayBeFilled && isRead)
      return Warn(group, "no emitter that works fills it: it stays empty");
    for (const auto& [kind, movers] : moved) TellMovers(group, kind, movers, filled, mayBeFilled);
    if (mayBeFilled) return;
    for (const BaseNode* user : users) TellUser(group, *user, filled);
    TellExports(group, filled);
    for (const auto& [kind, emitters] : filled) {
      if (!moved.contains(kind) && !MayStandStill(users) && !AnyMoves(emitters))
        Warn(group, fmt::format("nothing moves {}the {} particles that {} makes; add a {} for them",
                                AnyHasAge(emitters) ? "or ages " : "", NameOfKind(kind),
                                Named(*emitters.front()), Move::Kind().type));
      else if (moved.contains(kind))
        for (const BaseNode* emitter : emitters)
          if (IsEmitter(*emitter)) LookAtBirths(*emitter, moved.at(kind));
    }
  }

  /// Whether a converter makes particles of a group; one between two groups does nothing.
  bool IsFilledBy(const BaseNode& group, const BaseNode& node) const {
    if (!IsA<ParticleConverter>(node) || Linked(node, ParticleConverter::kTargetRow) != &group)
      return false;
    const BaseNode* source = Linked(node, ParticleConverter::kSourceRow);
    return source && source->Type() != ParticleGroup::kNodeType;
  }
  /// Whether one of those that fill a group places its particles in every step.
  static bool AnyMoves(const Nodes& makers) {
    return std::any_of(makers.begin(), makers.end(), [](const BaseNode* maker) {
      return IsA<ParticleConverter>(*maker) && Whole(*maker, ParticleConverter::kOnceRow) == 0;
    });
  }

  /// Particles that tell or show something may stand where they are, unless something steers them.
  static bool MayStandStill(const Nodes& users) {
    const auto isAmong = [&](auto&& test) {
      return std::any_of(users.begin(), users.end(),
                         [&](const BaseNode* user) { return test(*user); });
    };
    return isAmong([](const BaseNode& user) {
             return IsA<GridToParticles>(user) || IsA<POP_Property>(user) ||
                    IsA<POP_Deform>(user) || IsA<POP_Geometry>(user) ||
                    IsA<ParticleConverter>(user);
           }) &&
           !isAmong([](const BaseNode& user) {
             return IsA<ParticleForces>(user) || IsA<POP_Flock>(user) ||
                    IsA<Pop_FollowSpline>(user);
           });
  }

  bool IsSurfaceOf(const BaseNode& node, const BaseNode& group) const {
    return IsA<SurfaceReconstructor>(node) &&
           Linked(node, SurfaceReconstructor::kSourceRow) == &group;
  }

  void TellMovers(const BaseNode& group, i32 kind, const Nodes& movers, const ByKind& filled,
                  bool mayBeFilled) {
    if (!mayBeFilled) TellMissing(group, *movers.front(), "moves", Move::kKindRow, kind, filled);
    for (std::size_t i = 1; i < movers.size(); ++i)
      Warn(*movers[i],
           fmt::format("it moves the {} particles of {}, which {} moves already: both together "
                       "carry them twice as far",
                       NameOfKind(kind), Named(group), Named(*movers.front())));
  }

  void TellUser(const BaseNode& group, const BaseNode& user, const ByKind& filled) {
    if (IsA<Force_GridTurbulence>(user))
      TellMissing(group, user, "stirs by", Force_GridTurbulence::kGroupRow, kVortex, filled);
    else if (IsA<SurfaceReconstructor>(user))
      TellMissing(group, user, "covers", SurfaceReconstructor::kKindRow,
                  Whole(user, SurfaceReconstructor::kKindRow), filled);
    else if (IsA<WaterSolver>(user))
      TellMissing(group, user, "is made of", WaterSolver::kGroupsRow, kLiquid, filled);
    else if (ListsKinds(user))
      TellMissingOfList(group, user, filled);
    else if (IsA<POP_Flock>(user) && Linked(user, POP_Flock::kPredatorsRow) == &group)
      TellMissing(group, user, "hunts with", POP_Flock::kPredatorKindRow,
                  Whole(user, POP_Flock::kPredatorKindRow), filled);
    else if (const i32 row = KindRowOf(user))
      TellMissing(group, user, "works on", row, Whole(user, row), filled);
    else
      TellMissing(group, user, "takes", ParticleToGridEmitter::kParticleTypeRow,
                  Whole(user, ParticleToGridEmitter::kParticleTypeRow), filled);
  }

  /// Entries of a list of groups whose kinds nothing makes.
  void TellMissingOfList(const BaseNode& group, const BaseNode& user, const ByKind& filled) {
    const auto* list = Get<InExcludeData>(user, ParticleOperator::kGroupRow);
    if (!list) return;
    for (const InExcludeData::Entry& entry : list->entries) {
      if (entry.node != group.Id() || entry.flags == 0) continue;
      const bool isMade = std::any_of(filled.begin(), filled.end(), [&](const auto& made) {
        return NamesKind(entry.flags, made.first);
      });
      for (const ParticleKindRow& kind : kParticleKindRows)
        if (!isMade && entry.flags & kind.listFlag)
          return TellMissing(group, user, "works on", ParticleOperator::kGroupRow, kind.kind,
                             filled);
    }
  }

  /// Files of points of kinds that nothing makes.
  void TellExports(const BaseNode& group, const ByKind& filled) {
    for (const auto& [kind, emitters] : filled)
      for (const BaseNode* emitter : emitters)
        if (IsKeyed(*emitter, ParticleEmitter::kKindRow)) return;
    for (const ExportSpec& spec : mScene.exports) {
      const bool isOfGroup = spec.format == "points" && !spec.particles.empty() &&
                             spec.particles.front() == group.Id();
      if (!isOfGroup || spec.kinds == 0 || filled.empty() ||
          std::any_of(filled.begin(), filled.end(),
                      [&](const auto& made) { return spec.kinds >> made.first & 1; }))
        continue;
      const auto& [made, emitters] = *filled.begin();
      Warn(group,
           fmt::format("the files '{}' of its points stay empty: none is of their 'kinds', and "
                       "{} makes {} ones",
                       Shown(spec.file), Named(*emitters.front()), NameOfKind(made)));
    }
  }

  /// Whoever works on particles of a kind that nothing makes.
  void TellMissing(const BaseNode& group, const BaseNode& user, std::string_view verb, i32 row,
                   i32 kind, const ByKind& filled) {
    if (filled.empty() || filled.contains(kind) || IsKeyed(user, row)) return;
    const auto& [made, emitters] = *filled.begin();
    for (const BaseNode* emitter : emitters)
      if (IsKeyed(*emitter, ParticleEmitter::kKindRow)) return;
    WarnOfSleep(
        user,
        fmt::format("it {} {} particles, and {} gets none: {} makes {} ones", verb,
                    NameOfKind(kind), Named(group), Named(*emitters.front()), NameOfKind(made)),
        row);
  }

  // ---- births -----------------------------------------------------------------------------------

  /// What is born, and what becomes of it under those that move it.
  void LookAtBirths(const BaseNode& emitter, const Nodes& movers) {
    for (const NodeId id : LinksOf(emitter)) {
      const BaseNode* given = mScene.document->Find(id);
      if (!given || !given->IsEnabled()) continue;
      if (IsA<Property<double>>(*given)) LookAtAge(*given);
      if (IsA<Property<Vec3d>>(*given)) LookAtThrow(*given, movers);
    }
    LookAtPlace(emitter, movers);
  }

  void LookAtAge(const BaseNode& property) {
    const i32 row = Property<double>::kValueRow;
    if (Whole(property, iProperty::kPropertyRow) != property_id::kAge ||
        !StaysAtMost(property, row, 1) || !mTold.insert(&property).second)
      return;
    Warn(property,
         fmt::format("'{}' is {:g}: an age counts frames, and particles of no more than one are "
                     "gone at the end of the frame in which they are born",
                     NameOf(property, row), Number(property, row)),
         row);
  }

  /// A speed of which the free flight of new particles takes nothing.
  void LookAtThrow(const BaseNode& property, const Nodes& movers) {
    if (Whole(property, iProperty::kPropertyRow) != property_id::kVelocity ||
        StaysZero(property, iProperty::kValueRow))
      return;
    for (const BaseNode* mover : movers) {
      const i32 motion = Whole(*mover, Move::kMotionRow);
      const bool flies = motion == Move::kBallistic || motion == Move::kGridThenBallistic;
      if (!flies || Whole(*mover, Move::kIntegratorRow) != ParticleMotion::kVerlet ||
          IsKeyed(*mover, Move::kMotionRow) || IsKeyed(*mover, Move::kIntegratorRow) ||
          !mTold.insert(mover).second)
        continue;
      Warn(*mover,
           fmt::format("'{}' is verlet, which takes the speed from the way of the substep before: "
                       "new particles have none, and the velocity that {} gives them is lost; "
                       "velocity_verlet keeps it",
                       NameOf(*mover, Move::kIntegratorRow), Named(property)),
           Move::kIntegratorRow);
    }
  }

  /// Particles that are born where no flow that carries them is.
  void LookAtPlace(const BaseNode& emitter, const Nodes& movers) {
    Nodes carriers;
    for (const BaseNode* mover : movers) {
      if (Whole(*mover, Move::kMotionRow) != Move::kGrid || IsKeyed(*mover, Move::kMotionRow) ||
          IsKeyed(*mover, Move::kSolverListRow))
        return;
      for (const BaseNode* solver : SolversOf(*mover)) carriers.push_back(solver);
    }
    const i32 row =
        IsA<OnMesh>(emitter) ? i32{OnMesh::kSourceRow} : i32{ObjectParticleGridEmitter::kVolumeRow};
    ForEachStill(
        *FindKind(emitter.Type()), row,
        [&](const BaseNode& other, const BaseNode& shape, const Vec3d& low, const Vec3d& high) {
          const auto meets = [&](const BaseNode* solver) { return MayMeet(*solver, low, high); };
          if (&other != &emitter || carriers.empty() ||
              std::any_of(carriers.begin(), carriers.end(), meets))
            return;
          Warn(emitter,
               fmt::format("the shape of {} lies outside of the box of every fluid that "
                           "carries its particles; {}",
                           Named(shape), kOfBoxes),
               row);
        });
  }

  // ---- motion -----------------------------------------------------------------------------------

  /// The solvers whose flows carry the particles of an advection.
  Nodes SolversOf(const BaseNode& advection) const {
    const Value* value = advection.Get(Move::kSolversRow);
    const auto* list = value ? std::get_if<InExcludeData>(value) : nullptr;
    const bool includes = list && Whole(advection, Move::kSolverListRow) != 0;
    Nodes solvers;
    for (const BaseNode* solver : mSolvers) {
      const bool isNamed =
          list && std::any_of(list->entries.begin(), list->entries.end(),
                              [&](const auto& entry) { return entry.node == solver->Id(); });
      if (!list || includes == isNamed) solvers.push_back(solver);
    }
    return solvers;
  }

  void LookAtMotion(const BaseNode& advection) {
    if (!advection.Get(Move::kSolversRow))
      NoteUnread(advection, Move::kSolverListRow,
                 fmt::format("it has no '{}'", NameOf(advection, Move::kSolversRow)));
    if (IsKeyed(advection, Move::kMotionRow)) return;
    const i32 motion = Whole(advection, Move::kMotionRow);
    if (motion == Move::kOff)
      return WarnOfSleep(advection, fmt::format("it never works: {}", Move::kOffReason),
                         Move::kMotionRow);
    LookAtOpenSides(advection, motion);
    if (IsKeyed(advection, Move::kSolverListRow) || !SolversOf(advection).empty()) return;
    if (motion != Move::kGrid) {
      if (!StaysAtMost(advection, Move::kDragRow, 0))
        Note(advection,
             fmt::format("'{}' has no effect: {}", NameOf(advection, Move::kDragRow),
                         mSolvers.empty()
                             ? "there is no solver that is switched on, whose flow would drag"
                             : "by 'solvers' and 'solver_list' no flow is left that would drag"),
             Move::kDragRow);
      return;
    }
    WarnOfSleep(advection, mSolvers.empty() ? Move::kNoFlowReason : Move::kNoFlowLeftReason,
                mSolvers.empty() ? i32{Move::kMotionRow} : i32{Move::kSolversRow});
  }

  /// What flies where no flow is ends at the sides through which it would come there, and what a
  /// liquid alone carries has no weight beyond them.
  void LookAtOpenSides(const BaseNode& advection, i32 motion) {
    const bool kills = Whole(advection, Move::kKillOutsideRow) != 0;
    if (IsKeyed(advection, Move::kKillOutsideRow) || IsKeyed(advection, Move::kSolverListRow))
      return;
    for (const BaseNode* solver : SolversOf(advection)) {
      if ((!IsA<FluidSolver>(*solver) && !IsA<WaterSolver>(*solver)) ||
          std::none_of(std::begin(FluidSolver::kWallRows), std::end(FluidSolver::kWallRows),
                       [&](i32 row) { return Whole(*solver, row) == 0; }))
        continue;
      if (motion == Move::kGridThenBallistic && kills)
        return Note(advection,
                    fmt::format("those that leave through an open side of {} are gone at the end "
                                "of the frame; to let them fly on there, switch off '{}'",
                                Named(*solver), NameOf(advection, Move::kKillOutsideRow)),
                    Move::kMotionRow);
      if (motion == Move::kGrid && !kills && IsA<WaterSolver>(*solver))
        return Note(advection,
                    fmt::format("those that leave through an open side of {} glide on without "
                                "weight; grid_then_ballistic as '{}' lets them fly there",
                                Named(*solver), NameOf(advection, Move::kMotionRow)),
                    Move::kKillOutsideRow);
    }
  }

  // ---- liquids ----------------------------------------------------------------------------------

  /// A liquid that nothing pulls down.
  void LookAtLiquid(const BaseNode& liquid) {
    const Value* value = liquid.Get(WaterSolver::kForcesRow);
    const auto* list = value ? std::get_if<InExcludeData>(value) : nullptr;
    if (!list || !list->entries.empty()) return;
    Warn(liquid, fmt::format("it has no gravity and stays where it is: name a {} under '{}'",
                             Force_Gravity::Kind().type, NameOf(liquid, WaterSolver::kForcesRow)));
  }

  /// Emitters that fill cells with more or fewer particles than the liquid takes for full.
  void LookAtCorrection(const BaseNode& liquid) {
    if (Whole(liquid, WaterSolver::kEvenRow) == 0 || IsKeyed(liquid, WaterSolver::kEvenRow) ||
        IsKeyed(liquid, WaterSolver::kPerCellRow))
      return;
    const double full = Number(liquid, WaterSolver::kPerCellRow);
    const std::set<NodeId> links = LinksOf(liquid);
    for (const BaseNode* emitter : mNodes) {
      if (!IsA<ObjectParticleGridEmitter>(*emitter) || !MayWork(*emitter) ||
          Whole(*emitter, ParticleEmitter::kKindRow) != kLiquid ||
          IsKeyed(*emitter, ParticleEmitter::kKindRow))
        continue;
      const BaseNode* group = Linked(*emitter, ParticleEmitter::kGroupRow);
      if (group && links.contains(group->Id())) TellFilling(liquid, *emitter, full);
    }
  }
  void TellFilling(const BaseNode& liquid, const BaseNode& emitter, double full) {
    using Filler = ObjectParticleGridEmitter;
    for (const i32 row : {i32{Filler::kOuterRow}, i32{Filler::kInnerRow}}) {
      const double made = std::pow(8.0, Whole(emitter, row));
      if (made == full || IsKeyed(emitter, row)) continue;
      return Warn(emitter,
                  fmt::format("its '{}' makes {:g} particles a cell, and {} takes {:g} for a full "
                              "one: its correction drives them {}; set '{}' there to {:g}",
                              NameOf(emitter, row), made, Named(liquid), full,
                              made > full ? "apart" : "together",
                              NameOf(liquid, WaterSolver::kPerCellRow), made),
                  row);
    }
  }

  /// Another liquid of the same particles, which comes first by name, within its box.
  void LookAtShared(const BaseNode& liquid) {
    const std::set<const BaseNode*> groups = GroupsOf(liquid);
    if (!Get<Vec3d>(liquid, FluidSolver::kBoxSizeRow)) return;
    const Box box = BoxOf(liquid).Wider(-kSeam);
    for (const BaseNode* other : mSolvers) {
      if (other == &liquid || !IsA<WaterSolver>(*other) || !MayWork(*other) ||
          liquid.Path() < other->Path() || !MayMeet(*other, box.low, box.high))
        continue;
      for (const BaseNode* group : GroupsOf(*other))
        if (groups.contains(group))
          return Warn(liquid,
                      fmt::format("its box and that of {} overlap, and both are made of {}: what "
                                  "lies in both moves with {} alone, and each has air where the "
                                  "other one's water is; for one body of water take one liquid",
                                  Named(*other), Named(*group), Named(*other)),
                      WaterSolver::kGroupsRow);
    }
  }
  std::set<const BaseNode*> GroupsOf(const BaseNode& liquid) const {
    std::set<const BaseNode*> groups;
    if (const auto* list = Get<InExcludeData>(liquid, WaterSolver::kGroupsRow))
      for (const auto& entry : list->entries)
        if (const BaseNode* group = mScene.document->Find(entry.node);
            group && group->Type() == ParticleGroup::kNodeType)
          groups.insert(group);
    return groups;
  }

  static constexpr double kSeam = 1e-6;  ///< host units: boxes that share a side don't overlap
  Nodes mSolvers;                        ///< those that are switched on
  std::set<const BaseNode*> mTold;       ///< of what several emitters may show
};

}  // namespace

void AddParticleHints(const LoadedScene& scene, const ScenePlaces& places,
                      Diagnostics& diagnostics) {
  for (const BaseNode* server : scene.servers)
    if (server->IsEnabled()) ParticleHints(scene, places, diagnostics).LookAt(*server);
}

}  // namespace MELDO_GLOBAL::app
