// Constraints turn a position into a weight.
#pragma once
#include <map>
#include <memory>
#include <span>
#include <vector>

#include "framework/ibase.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What a constraint keeps for one of its holders, from step to step.
class ConstraintState {
 public:
  virtual ~ConstraintState() = default;
  /// As `iBase::Persist`.
  virtual void Persist(StateArchive& /*archive*/) {}
};

/// Who asks a constraint.
struct ConstraintUse {
  const iBase* owner = nullptr;
  ConstraintState* state = nullptr;  ///< of the holder; null for a constraint that keeps nothing
  u32 worker = 0;                    ///< which of the workers that ask at a time
};

/// Base of the constraints that emitters, forces and operators hold a list of (parameter 2502).
/// Several holders may name one: what it keeps beside its settings stands in their states.
class Constraint : public iBase {
 public:
  using iBase::iBase;
  i32 GetListIndex() const override { return kListAuxiliary; }
  void GetCategories(u32& mask) const override { mask |= kCategoryConstraint; }

  /// A state as it is at the start of a simulation.
  virtual std::unique_ptr<ConstraintState> MakeState() const { return nullptr; }
  /// Once a step, before any test, on the pipeline thread.
  virtual void Prepare(const ConstraintUse& /*use*/) {}
  virtual void Finish(const ConstraintUse& /*use*/) {}
  /// Multiplies `weight` at `position` (simulation units); false ends the chain for this point.
  virtual bool Test(const Vec3d& position, double& weight, const ConstraintUse& use) = 0;
};

/// The constraints of one holder, in list order, with the states that they keep for it.
class ConstraintList : public LinkPort {
 public:
  /// Takes the enabled constraints among what a list of links names, in its order. One that was
  /// named before goes on with its state.
  void Connect(std::span<const host::LinkTarget> targets) override;
  void Clear() { mNamed.clear(); }
  /// Reads what the constraints are set to anew, where their links were dropped.
  void Relink();
  bool IsEmpty() const { return mNamed.empty(); }
  /// Forgets what the constraints keep, as at the start of a simulation.
  void Reset();
  void Prepare(const iBase* owner);
  void Finish(const iBase* owner);
  /// Runs the enabled constraints in order on `weight`, up to the first that answers false.
  /// Returns false if one did, or if the weight is exactly 0. Only between `Prepare` and `Finish`.
  bool Test(const Vec3d& position, double& weight, const iBase* owner, u32 worker) const;
  /// As `iBase::Persist`; `scene` holds the constraints.
  void Persist(StateArchive& archive, const Scene& scene);

 private:
  struct Entry {
    Constraint* constraint;
    ConstraintState* state;
  };
  std::vector<Entry> mNamed;
  std::map<host::NodeId, std::unique_ptr<ConstraintState>> mStates;  ///< null for those without one
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
