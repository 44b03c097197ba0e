// The value of a field at a point.
#pragma once
#include "fluids/constraints/field_share.h"
#include "fluids/emission/channel_pair.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures a field at a point: a number as a share of its range, a vector by its length as a share
/// of a speed. A comparison makes 1 or 0 of it, a curve may bend it.
class GridValueConstraint : public MeasuredConstraint<GridValueConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 19;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  bool ResolveLinks() override;
  double Measure(const Vec3d& position, const ConstraintUse&) const;

 protected:
  bool Fetch() override;

 private:
  enum Comparison : i32 { kEqual = 0, kUnequal = 1, kOutside = 2, kBetween = 3, kNone = 4 };

  double ValueAt(const Vec3d& position) const;
  bool Compare(double v) const;
  double PlaceOnCurve(double v) const;

  ChannelTarget mTarget;
  i32 mComparison = kBetween;
  double mLow = 0, mHigh = 1;
  double mSpeed = 10;
  bool mBends = true;
  const host::SplineData* mBend = nullptr;

  // For one holder.
  const EGrid<double>* mGrids[3] = {};
  FieldShare mRange;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
