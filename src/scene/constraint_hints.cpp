#include <fmt/format.h>

#include <algorithm>

#include "cache/particle_cacher.h"
#include "fluids/constraints/gradient_constraint.h"
#include "fluids/constraints/noise_constraint.h"
#include "fluids/constraints/particle_constraint_attribute.h"
#include "fluids/constraints/particle_constraint_property.h"
#include "fluids/constraints/particle_count_constraint.h"
#include "fluids/constraints/volume_constraint.h"
#include "fluids/emission/particle_to_grid_emitter.h"
#include "fluids/forces/force_grid_turbulence.h"
#include "fluids/mesh/obstacle_rows.h"
#include "fluids/mesh/obstacle_settings.h"
#include "fluids/operators/particle_forces.h"
#include "fluids/particles/particle_group.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/surfaces/surface_reconstructor.h"
#include "framework/constraint.h"
#include "framework/server_rows.h"
#include "scene/hint_base.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

/// Constraints that hold nothing back, or everything.
class ConstraintHints : public HintBase {
 public:
  using HintBase::HintBase;

  void LookAtTags() {
    mScene.document->ForEachNode([&](const BaseNode& node) {
      if (const BaseNode* tag = node.Tag(kObstacleTag); tag && tag->Table()) LookAtTag(node, *tag);
    });
  }

  void LookAt(const BaseNode& server) {
    mNodes.clear();
    Collect(server);
    for (const BaseNode* node : mNodes) {
      CheckHolder(*node);
      const NodeKind* kind = FindKind(node->Type());
      if (!kind || !(kind->categories & kCategoryConstraint)) continue;
      if (FindRow(*node->Table(), Constraint::kStrengthRow)) CheckRange(*node);
      if (IsA<GradientConstraint>(*node)) CheckRamp(*node);
      if (IsA<NoiseConstraint>(*node)) CheckPatches(*node, server);
      if (IsA<VolumeConstraint>(*node)) CheckSurface(*node);
      if (IsA<ParticleCountConstraint>(*node)) CheckCount(*node);
    }
  }

 private:
  static bool IsOfParticles(const BaseNode& node) {
    return IsA<ParticleConstraint_Attribute>(node) || IsA<ParticleConstraint_Property>(node);
  }

  /// Whether what a node asks its constraints about are particles, or particles too.
  bool AsksOfParticles(const BaseNode& holder) const {
    if (IsA<ParticleCacher>(holder) || IsA<Force_GridTurbulence>(holder)) return true;
    const auto pushesParticles = [](const BaseNode* reader) {
      return IsA<ParticleForces>(*reader);
    };
    const auto& readers = ReadersOf(holder);
    if (std::any_of(readers.begin(), readers.end(), pushesParticles)) return true;
    if (IsA<SurfaceReconstructor>(holder))
      return Whole(holder, SurfaceReconstructor::kHostRow) == 0;
    if (IsA<ParticleToGridEmitter>(holder)) {
      const BaseNode* source = Linked(holder, ParticleToGridEmitter::kSourceRow);
      return source && source->Type() == ParticleGroup::kNodeType;
    }
    const NodeKind* kind = FindKind(holder.Type());
    return kind && (kind->categories & kCategoryParticle) &&
           (kind->list == kListOperators || kind->list == kListForces);
  }

  /// What asks for particles and is asked about places.
  void CheckHolder(const BaseNode& holder) {
    const auto* list = Get<InExcludeData>(holder, common_row::kConstraints);
    if (!list || list->entries.empty()) return;
    if (IsA<SurfaceReconstructor>(holder) && Whole(holder, SurfaceReconstructor::kFilterRow) == 0)
      NoteUnread(holder, common_row::kConstraints,
                 fmt::format("'{}' is off", NameOf(holder, SurfaceReconstructor::kFilterRow)));
    if (AsksOfParticles(holder)) return;
    WarnOfPlaces(holder, *list, NameOf(holder, common_row::kConstraints), common_row::kConstraints);
  }

  void WarnOfPlaces(const BaseNode& holder, const InExcludeData& list, std::string_view name,
                    i32 row = 0) {
    for (const InExcludeData::Entry& entry : list.entries) {
      const BaseNode* constraint = mScene.document->Find(entry.node);
      if (constraint && IsOfParticles(*constraint))
        Warn(holder,
             fmt::format("'{}': {} looks at particles, and is asked here about places: it lets "
                         "everything pass",
                         name, Named(*constraint)),
             row);
    }
  }

  /// Limits of what an obstacle hasn't got.
  void LookAtTag(const BaseNode& node, const BaseNode& tag) {
    using namespace obstacle_row;
    ObstacleSettings settings;
    FillMembers(*tag.Table(), &tag, settings);
    for (const auto& [row, value] : {kLinearDampingLimits, kAngularDampingLimits, kFrictionLimits,
                                     kRollingFrictionLimits, kRestitutionLimits}) {
      const auto* list = Get<InExcludeData>(tag, row);
      if (!list || list->entries.empty()) continue;
      WarnOfPlaces(node, *list, NameOf(tag, row));
      const bool isOfFlight = value == kLinearDamping || value == kAngularDamping;
      const std::string why = StaysZero(tag, value) ? fmt::format("'{}' is 0", NameOf(tag, value))
                              : isOfFlight && !settings.IsHeavy() ? "without a mass it doesn't move"
                              : !HasBodies() ? "no obstacle has a mass, so nothing touches it"
                                             : "";
      if (!why.empty())
        Note(node, fmt::format("'{}' of its obstacle has no effect: {}", NameOf(tag, row), why));
    }
  }

  bool IsFixed(const BaseNode& node, i32 row) const { return !node.Tracks().contains(row); }

  /// Ranges that come to the same number everywhere.
  void CheckRange(const BaseNode& node) {
    constexpr i32 low = Constraint::kOutputLowRow, high = Constraint::kOutputHighRow;
    if (StaysZero(node, Constraint::kStrengthRow))
      return Warn(
          node,
          fmt::format("'{}' is 0: it lets nothing pass", NameOf(node, Constraint::kStrengthRow)),
          Constraint::kStrengthRow);
    const double out = Number(node, low);
    if (IsFixed(node, low) && IsFixed(node, high) && out == Number(node, high))
      return Warn(node,
                  fmt::format("'{}' and '{}' are {:g} both: it is {:g}, whatever it "
                              "measures",
                              NameOf(node, low), NameOf(node, high), out,
                              out * Number(node, Constraint::kStrengthRow)),
                  high);
    constexpr i32 from = Constraint::kInputLowRow, to = Constraint::kInputHighRow;
    // Of properties other rows say it.
    if (!IsA<ParticleConstraint_Property>(node) && IsFixed(node, from) && IsFixed(node, to) &&
        Number(node, from) == Number(node, to))
      Warn(node,
           fmt::format("'{}' and '{}' are {:g} both: it comes to the same, whatever it "
                       "measures",
                       NameOf(node, from), NameOf(node, to), Number(node, from)),
           to);
    const bool isClamped =
        Whole(node, Constraint::kClampLowRow) != 0 || Whole(node, Constraint::kClampHighRow) != 0;
    if (isClamped && !IsA<ParticleConstraint_Property>(node) && IsFixed(node, from) &&
        IsFixed(node, to) && Number(node, from) > Number(node, to))
      Warn(node,
           fmt::format("'{}' is above '{}': it is a step, since what lies between them counts as "
                       "one of both; exchange them and use '{}'",
                       NameOf(node, from), NameOf(node, to), NameOf(node, Constraint::kInvertRow)),
           from);
  }

  /// A ramp of numbers of particles that none of them climbs.
  void CheckCount(const BaseNode& node) {
    using Count = ParticleCountConstraint;
    if (Whole(node, Count::kOverflowRow) != Count::kGoOn && IsFixed(node, Count::kLeastRow) &&
        IsFixed(node, Count::kMostRow) &&
        Whole(node, Count::kMostRow) <= Whole(node, Count::kLeastRow))
      Warn(node,
           fmt::format("'{}' is {} and '{}' is {}: no number of particles counts as more than 0",
                       NameOf(node, Count::kLeastRow), Whole(node, Count::kLeastRow),
                       NameOf(node, Count::kMostRow), Whole(node, Count::kMostRow)),
           Count::kMostRow);
  }

  void CheckRamp(const BaseNode& node) {
    const auto* gradient = Get<Gradient>(node, GradientConstraint::kGradientRow);
    if (!gradient || gradient->knots.empty())
      WarnOfSleep(node, fmt::format("it has no '{}', and lets everything pass",
                                    NameOf(node, GradientConstraint::kGradientRow)));
  }

  /// A gas has no surface.
  void CheckSurface(const BaseNode& node) {
    const BaseNode* shape = Linked(node, VolumeConstraint::kVolumeRow);
    if (shape && IsA<FluidSolver>(*shape))
      WarnOfSleep(
          node,
          fmt::format("{} is a gas and has no surface: it lets everything pass", Named(*shape)),
          VolumeConstraint::kVolumeRow);
  }

  /// Patches that cells can't show.
  void CheckPatches(const BaseNode& node, const BaseNode& server) {
    constexpr i32 row = NoiseConstraint::kScaleRow;
    const double cell = Number(server, server_row::kCellSize) *
                        Number(server, server_row::kHostUnits) /
                        Number(server, server_row::kSimulationUnits);
    if (StaysAtMost(node, row, 0))
      WarnOfSleep(
          node, fmt::format("'{}' isn't above 0: it lets everything pass", NameOf(node, row)), row);
    else if (cell > 0 && StaysAtMost(node, row, cell))
      Note(node,
           fmt::format("'{}' is {:g}, and a cell is {:g} long: its patches are finer than what is "
                       "simulated",
                       NameOf(node, row), Number(node, row), cell),
           row);
  }
};

}  // namespace

void AddConstraintHints(const LoadedScene& scene, const ScenePlaces& places,
                        Diagnostics& diagnostics) {
  ConstraintHints hints(scene, places, diagnostics);
  for (const BaseNode* server : scene.servers) hints.LookAt(*server);
  hints.LookAtTags();
}

}  // namespace MELDO_GLOBAL::app
