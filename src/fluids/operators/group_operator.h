// Operators on the particles of one group.
#pragma once
#include "fluids/particles/particle_group.h"
#include "framework/constraint.h"
#include "framework/duration.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Base of what changes or shows particles of one kind of a group, each by the weight that the time
/// window and the constraints leave of it. A class adds its rows behind `CommonRows`.
class GroupOperator : public iObject {
 public:
  using iObject::iObject;
  static constexpr i32 kGroupRow = 1000;
  ConstraintList* Constraints() override { return &mConstraints; }
  /// Works in every step of a simulation.
  void CheckDirty() override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 protected:
  /// Makes ready for a step in which there are particles; false, told by `Deactivate`, where
  /// something is missing.
  virtual bool PrepareOperator() { return true; }
  /// Works on a living particle. Runs on all workers, each with rows of its own; what it may read
  /// of other rows is what no call changes.
  virtual void WorkOn(ParticleStore& store, i32 row, double weight, u32 worker) = 0;
  /// Ends a step in which it worked.
  virtual void FinishOperator() {}
  /// Whether it leaves particles alone that a cache plays.
  virtual bool RestsWhilePlayed() const { return true; }
  /// Whether it has no work in steps of no length.
  virtual bool NeedsTime() const { return true; }

  /// A number, 0 <= u < 1, that belongs to a particle and a purpose: whatever the threads are.
  static double DrawOf(u64 seed, i32 particleId, u64 purpose);
  /// The rows of group, kind and duration, of which the latter have other ids in each class.
  static host::ParameterTable CommonRows(i32 kindRow, i32 durationRow, std::string_view groupHelp,
                                         std::string_view kindHelp) {
    return {host::LinkRow(kGroupRow, "group", groupHelp, {ParticleGroup::kNodeType})
                .To(&GroupOperator::mGroup)
                .Writes()
                .Required(),
            host::LongRow(kindRow, "kind", kLiquid, "", kindHelp)
                .Choices(ParticleKindChoices())
                .To(&GroupOperator::mKind),
            host::LinkRow(durationRow, "duration", "works only inside this time window",
                          {Duration::Kind().id})
                .To(&GroupOperator::mDuration)};
  }

  ParticleGroup* mGroup = nullptr;
  i32 mKind = kLiquid;
  Duration* mDuration = nullptr;
  ConstraintList mConstraints;
  double mWeight = 1;  ///< of the time window, in this step
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
