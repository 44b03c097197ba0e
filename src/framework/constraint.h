// Constraints turn a position into a weight.
#pragma once
#include <memory>
#include <span>
#include <vector>

#include "framework/ibase.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Base of the constraints that emitters, forces and operators hold a list of (parameter 2502).
class Constraint : public iBase {
 public:
  using iBase::iBase;
  i32 GetListIndex() const override { return kListAuxiliary; }
  void GetCategories(u32& mask) const override { mask |= kCategoryConstraint; }

  Constraint() = default;
  Constraint(const Constraint&) = default;
  /// One of the same kind with the same settings, for a holder of its own.
  virtual std::unique_ptr<Constraint> Copy() const = 0;
  /// Once a step, before any test, on the pipeline thread.
  virtual void Prepare(iBase* /*owner*/) {}
  virtual void Finish() {}
  /// Multiplies `weight` at `position` (simulation units); false ends the chain for this point.
  virtual bool Test(const Vec3d& position, double& weight, const iBase* owner, u32 worker) = 0;
};

/// The constraints of one holder, in list order. Between `Prepare` and `Finish` the holder has
/// copies of its own, so that a constraint that several holders name keeps a state for each.
class ConstraintList : public LinkPort {
 public:
  /// Takes the enabled constraints among what a list of links names, in its order.
  void Connect(std::span<const host::LinkTarget> targets) override;
  void Clear() { mNamed.clear(); }
  bool IsEmpty() const { return mNamed.empty(); }
  void Prepare(iBase* owner);
  void Finish();
  /// Runs the enabled constraints in order on `weight`, up to the first that answers false.
  /// Returns false if one did, or if the weight is exactly 0. Only between `Prepare` and `Finish`.
  bool Test(const Vec3d& position, double& weight, const iBase* owner, u32 worker) const;

 private:
  std::vector<Constraint*> mNamed;
  std::vector<std::unique_ptr<Constraint>> mOwn;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
