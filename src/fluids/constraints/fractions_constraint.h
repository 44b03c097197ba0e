// How open a cell is.
#pragma once
#include "fluids/flow/ifluid_solver.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures the open fraction of a solver's cells at a point: 1 in the open, 0 in solids, in
/// between at their surfaces.
class FractionsConstraint : public MeasuredConstraint<FractionsConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 31;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  double Measure(const Vec3d& position, const ConstraintUse&) const;

 protected:
  bool Fetch() override;

 private:
  iFluidSolver* mSolver = nullptr;

  const EGrid<float>* mOpen = nullptr;  ///< for one holder
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
