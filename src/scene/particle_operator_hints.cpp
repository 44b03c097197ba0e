#include <fmt/format.h>

#include <algorithm>

#include "exchange/particles_object.h"
#include "fluids/emission/particle_emitter.h"
#include "fluids/forces/force_follow_spline.h"
#include "fluids/forces/neighbour_forces.h"
#include "fluids/operators/grid_to_particles.h"
#include "fluids/operators/particle_converter.h"
#include "fluids/operators/particle_forces.h"
#include "fluids/operators/pop_flock.h"
#include "fluids/operators/pop_follow_spline.h"
#include "host/spline_line.h"
#include "scene/hint_base.h"

namespace MELDO_GLOBAL::app {

using namespace host;
using namespace MELDO_SULVA;

namespace {

using Converter = ParticleConverter;
using Follow = Pop_FollowSpline;

/// What operators on particles and the forces that look at neighbours are set to.
class ParticleOperatorHints : public HintBase {
 public:
  using HintBase::HintBase;

  void LookAt(const BaseNode& server) {
    Collect(server);
    for (const BaseNode* node : mNodes) {
      if (!MayWork(*node)) continue;
      if (IsA<Force_Cohesion>(*node))
        TellSign<Force_Cohesion>(*node, "drives particles from the middle of their neighbours");
      if (IsA<Force_Alignment>(*node))
        TellSign<Force_Alignment>(*node, "turns particles away from how their neighbours fly");
      if (IsA<Force_FollowSpline>(*node)) LookAtPoint(*node);
      if (IsA<GridToParticles>(*node)) LookAtSum(*node);
      if (IsA<POP_Flock>(*node)) LookAtPredators(*node);
      if (IsA<Follow>(*node)) LookAtFollower(*node), LookAtWay(*node);
      if (IsA<ParticleForces>(*node) || IsA<GridToParticles>(*node)) LookAtKinds(*node);
      if (IsA<Converter>(*node)) LookAtConverter(*node);
    }
  }

  /// Objects of particles that hold nothing, and are read.
  void LookAtObjects() {
    mScene.document->ForEachNode([&](const BaseNode& node) {
      const auto* object = dynamic_cast<const exchange::ParticlesObject*>(&node);
      if (!object || object->IsFromFile()) return;
      const auto& readers = ReadersOf(node);
      const bool isFilled =
          std::any_of(readers.begin(), readers.end(), [&](const BaseNode* reader) {
            return IsA<Converter>(*reader) && Linked(*reader, Converter::kTargetRow) == &node;
          });
      if (!isFilled)
        Warn(node, fmt::format("it holds no particles: it has no 'file', and no {} hands any over "
                               "to it",
                               Converter::Kind().type));
    });
  }

 private:
  /// A strength that nobody has set does the opposite of what the name says.
  template <class F>
  void TellSign(const BaseNode& force, std::string_view does) {
    constexpr i32 row = F::kStrengthRow;
    if (IsGiven(force, row) || Number(force, row) >= 0) return;
    Warn(force,
         fmt::format("'{}' is {:g}, as a new node has it, and {}; above 0 it does the opposite",
                     NameOf(force, row), Number(force, row), does),
         row);
  }

  /// A point that the spline of a force hasn't got.
  void LookAtPoint(const BaseNode& force) {
    using Pull = Force_FollowSpline;
    const auto* spline = dynamic_cast<const SplineObject*>(Linked(force, Pull::kSplineRow));
    if (!spline || Whole(force, Pull::kModeRow) != Pull::kPoint) return;
    for (const i32 row : {i32{Pull::kModeRow}, i32{Pull::kSegmentRow}, i32{Pull::kPointRow}})
      if (force.Tracks().contains(row)) return;
    SplineTracker tracker;
    if (!tracker.Update(*spline, {1, 1, 1})) return;
    const i32 segment = Whole(force, Pull::kSegmentRow), count = tracker.Line().SegmentCount();
    if (segment > count)
      return WarnOfSleep(
          force,
          fmt::format("it never works: '{}' is {}, and {} has {}", NameOf(force, Pull::kSegmentRow),
                      segment, Named(*spline), count),
          Pull::kSegmentRow);
    const i32 point = Whole(force, Pull::kPointRow),
              points = tracker.Line().PointCount(segment - 1);
    if (point >= points)
      WarnOfSleep(
          force,
          fmt::format("it never works: '{}' is {}, and that line of {} has points from 0 to {}",
                      NameOf(force, Pull::kPointRow), point, Named(*spline), points - 1),
          Pull::kPointRow);
  }

  /// What is added again in each step.
  void LookAtSum(const BaseNode& reader) {
    constexpr i32 row = GridToParticles::kOperationRow;
    const BaseNode* target = Linked(reader, GridToParticles::kTargetRow);
    if (!target || IsGiven(reader, row) || reader.Tracks().contains(row)) return;
    Note(reader,
         fmt::format("'{}' is add: {} grows by the field in every step; set makes it the field",
                     NameOf(reader, row), Named(*target)),
         row);
  }

  void LookAtPredators(const BaseNode& flock) {
    const BaseNode* group = Linked(flock, POP_Flock::kGroupRow);
    const bool isKeyed = flock.Tracks().contains(POP_Flock::kKindRow) ||
                         flock.Tracks().contains(POP_Flock::kPredatorKindRow);
    if (group && !isKeyed && Linked(flock, POP_Flock::kPredatorsRow) == group &&
        Whole(flock, POP_Flock::kKindRow) == Whole(flock, POP_Flock::kPredatorKindRow))
      WarnOfSleep(flock, fmt::format("it never works: {}", POP_Flock::kOwnPreyReason),
                  POP_Flock::kPredatorsRow);
  }

  /// Entries of a list of groups whose flags name no kind.
  void LookAtKinds(const BaseNode& user) {
    constexpr i32 row = ParticleOperator::kGroupRow;
    const auto* list = Get<InExcludeData>(user, row);
    if (!list) return;
    for (const InExcludeData::Entry& entry : list->entries) {
      const BaseNode* group = mScene.document->Find(entry.node);
      const bool namesAny =
          std::any_of(kParticleKindRows.begin(), kParticleKindRows.end(),
                      [&](const auto& kind) { return NamesKind(entry.flags, kind.kind); });
      if (group && !namesAny)
        Warn(user,
             fmt::format("the flags {} of {} under '{}' name no kind of particles: nothing happens "
                         "to them",
                         entry.flags, Named(*group), NameOf(user, row)),
             row);
    }
  }

  /// Numbers that each are allowed, and with which a follower leads nobody or elsewhere.
  void LookAtWay(const BaseNode& follower) {
    for (const i32 row : {i32{Follow::kShareRow}, i32{Follow::kApproachForceRow},
                          i32{Follow::kApproachWeightRow}, i32{Follow::kApproachSpeedRow}}) {
      const bool isOwn = row == Follow::kApproachSpeedRow &&
                         Whole(follower, Follow::kApproachModeRow) == Follow::kOwnApproach;
      if (!isOwn && StaysZero(follower, row))
        Warn(follower,
             fmt::format("'{}' is 0: it {}", NameOf(follower, row),
                         row == Follow::kShareRow ? "leads nobody"
                                                  : "brings nobody to the way, and leads only who "
                                                    "is there"),
             row);
    }
    const i32 inner = Follow::kInnerRadiusRow, outer = Follow::kRadiusRow;
    if (Whole(follower, Follow::kSpreadRow) != Follow::kRim && !follower.Tracks().contains(inner) &&
        !follower.Tracks().contains(outer) && Number(follower, inner) > Number(follower, outer))
      Warn(follower,
           fmt::format("'{}' is {:g}, above '{}', which is {:g}: they go between the two all the "
                       "same",
                       NameOf(follower, inner), Number(follower, inner), NameOf(follower, outer),
                       Number(follower, outer)),
           inner);
  }

  /// Two that lead the same particles at the same time take them out of each other's hands.
  void LookAtFollower(const BaseNode& follower) {
    const auto isWhole = [](const BaseNode& node) {
      const auto* limits = Get<InExcludeData>(node, common_row::kConstraints);
      const auto* window = Get<Link>(node, Follow::kDurationRow);
      return (!limits || limits->entries.empty()) && (!window || window->node == 0) &&
             !node.Tracks().contains(Follow::kKindRow);
    };
    if (!isWhole(follower)) return;
    for (const BaseNode* other : mNodes) {
      if (other == &follower) return;
      if (IsA<Follow>(*other) && MayWork(*other) && isWhole(*other) &&
          Linked(*other, Follow::kGroupRow) == Linked(follower, Follow::kGroupRow) &&
          Whole(*other, Follow::kKindRow) == Whole(follower, Follow::kKindRow))
        return Warn(follower,
                    fmt::format("it leads the particles that {} leads already: what one of them "
                                "has picked the other one leads on, by its own splines; a '{}' or "
                                "a constraint for each keeps them apart",
                                Named(*other), NameOf(follower, Follow::kDurationRow)),
                    Follow::kGroupRow);
    }
  }

  void LookAtConverter(const BaseNode& converter) {
    const BaseNode* source = Linked(converter, Converter::kSourceRow);
    const BaseNode* target = Linked(converter, Converter::kTargetRow);
    if (!source || !target) return;
    const bool isOfGroup = source->Type() == ParticleGroup::kNodeType;
    const bool isToGroup = target->Type() == ParticleGroup::kNodeType;
    if (isOfGroup == isToGroup)
      return WarnOfSleep(converter, fmt::format("it never works: {}", Converter::kNoPairReason),
                         Converter::kTargetRow);
    if (!isOfGroup)
      NoteUnread(converter, Converter::kSourceKindRow, Named(*source) + " is no group");
    if (isToGroup) return LookAtRemoval(converter, *target);
    NoteUnread(converter, Converter::kTargetKindRow, Named(*target) + " is no group");
    const auto* object = dynamic_cast<const exchange::ParticlesObject*>(target);
    if (!object || object->IsFromFile())
      return WarnOfSleep(converter, fmt::format("it never works: {}", Converter::kHeldReason),
                         Converter::kTargetRow);
    for (const BaseNode* other : ReadersOf(*target)) {
      if (other == &converter) return;
      if (IsA<Converter>(*other) && MayWork(*other) &&
          Linked(*other, Converter::kTargetRow) == target)
        return Warn(converter,
                    fmt::format("it takes out of {} what {} hands over to it; give each an object "
                                "of its own",
                                Named(*target), Named(*other)),
                    Converter::kTargetRow);
    }
  }

  /// Particles of another's that a converter takes for gone.
  void LookAtRemoval(const BaseNode& converter, const BaseNode& group) {
    if (Whole(converter, Converter::kRemoveRow) == 0 ||
        converter.Tracks().contains(Converter::kRemoveRow))
      return;
    for (const BaseNode* other : ReadersOf(group)) {
      const NodeKind* kind = FindKind(other->Type());
      const bool fills = kind && MayWork(*other) && kind->list == kListEmitters &&
                         kind->categories & kCategoryParticle &&
                         Linked(*other, ParticleEmitter::kGroupRow) == &group;
      if (fills &&
          Whole(*other, ParticleEmitter::kKindRow) == Whole(converter, Converter::kTargetKindRow))
        return Warn(
            converter,
            fmt::format("it removes the particles that {} makes in {}, since its source "
                        "hasn't got them; switch off '{}', or give each a group",
                        Named(*other), Named(group), NameOf(converter, Converter::kRemoveRow)),
            Converter::kRemoveRow);
    }
  }
};

}  // namespace

void AddParticleOperatorHints(const LoadedScene& scene, const ScenePlaces& places,
                              Diagnostics& diagnostics) {
  for (const BaseNode* server : scene.servers)
    if (server->IsEnabled()) ParticleOperatorHints(scene, places, diagnostics).LookAt(*server);
  ParticleOperatorHints(scene, places, diagnostics).LookAtObjects();
}

}  // namespace MELDO_GLOBAL::app
