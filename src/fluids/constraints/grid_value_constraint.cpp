#include "fluids/constraints/grid_value_constraint.h"

#include "fluids/constraints/limited_example.h"
#include "fluids/fields/channel_kinds.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& GridValueConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300021,
      .type = "constraint_gridvalue",
      .label = "CS::Grid Value",
      .className = "GridValueConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose =
          "lets others work where a field has certain values: only where it is hot, only in "
          "thin smoke, only where it is fast",
      .example = example::Limited(
          R"({ "type": "constraint_gridvalue", "name": "where", "parameters": { "channel": "smoke", "low": 0, "high": 0.4 } })"),
      .rows = Parameters,
      .make = MakeNode<GridValueConstraint>,
  };
  return kind;
}

const ParameterTable& GridValueConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      LinkRow(1000, "channel",
              "the field that is looked at: numbers as shares of its range, vectors and a solver's "
              "velocity as shares of 'speed'")
          .AcceptsAny(kAllChannels)
          .AcceptsAny(kSolvers)
          .To(&GridValueConstraint::mTarget)
          .Required(),
      LongRow(1001, "comparison", kBetween, "",
              "lets pass where the value is 'low', isn't, lies outside of 'low' to 'high' or "
              "between them, ends included; with none the value itself is measured")
          .Choices({{kEqual, "equal"},
                    {kUnequal, "unequal"},
                    {kOutside, "outside"},
                    {kBetween, "between"},
                    {kNone, "none"}})
          .To(&GridValueConstraint::mComparison),
      RealRow(1002, "low", 0.0, "none", "the lower end, 0 to 1 over the range of the field")
          .OnlyWith(1001, {kEqual, kUnequal, kOutside, kBetween})
          .To(&GridValueConstraint::mLow),
      RealRow(1003, "high", 1.0, "none", "the upper end, 0 to 1 over the range of the field")
          .OnlyWith(1001, {kOutside, kBetween})
          .To(&GridValueConstraint::mHigh),
      BoolRow(1004, "use_value_curve", true, "puts what was found through 'value_curve'")
          .To(&GridValueConstraint::mBends),
      CurveRow(1005, "value_curve",
               "what a value comes to, before the range; behind a comparison its two ends count")
          .OnlyWith(1004, {1})
          .To(&GridValueConstraint::mBend),
      RealRow(1007, "speed", 10.0, "m/s", "how long a vector is that counts as 1")
          .To(&GridValueConstraint::mSpeed),
  });
  return table;
}

bool GridValueConstraint::ResolveLinks() {
  if (!MeasuredConstraint::ResolveLinks()) return false;
  mTarget.ChooseField(ChannelTarget::kVelocity);
  return !mTarget.IsEmpty();
}

bool GridValueConstraint::Fetch() {
  if (mTarget.IsEmpty()) return Deactivate("it has no channel; name one under 'channel'");
  for (i32 a = 0; a < 3; ++a)
    mGrids[a] = mTarget.scalar ? mTarget.scalar->GetGrid(0) : mTarget.vector->GetGrid(a);
  for (const EGrid<double>* grid : mGrids)
    if (!grid || !grid->mData) return Deactivate("its channel has no grid");
  if (mTarget.scalar)
    mRange = {mTarget.scalar->mValueMin, mTarget.scalar->mValueMax};
  else if (mSpeed == 0)
    return Deactivate("its 'speed' is 0");
  return true;
}

double GridValueConstraint::ValueAt(const Vec3d& position) const {
  const auto sample = [&](const EGrid<double>& grid) {
    return SampleLinear(grid, grid.ToSamples(position));
  };
  if (mTarget.scalar) return mRange.ShareOf(sample(*mGrids[0]));
  const Vec3d v{sample(*mGrids[0]), sample(*mGrids[1]), sample(*mGrids[2])};
  return std::sqrt(Dot(v, v)) / mSpeed;
}

bool GridValueConstraint::Compare(double v) const {
  switch (mComparison) {
    case kEqual: return v == mLow;
    case kUnequal: return v != mLow;
    case kOutside: return v <= mLow || v >= mHigh;
    default: return mLow <= v && v <= mHigh;
  }
}

double GridValueConstraint::PlaceOnCurve(double v) const {
  double from = 0, to = 1;
  if (mComparison == kOutside) {
    const bool isAbove = v > mLow;
    from = isAbove ? mHigh : 0.0;
    to = isAbove ? 1.0 : mLow;
  } else if (mComparison == kBetween) {
    from = mLow;
    to = mHigh;
  }
  if (to == from) return 1;
  return v == from ? 0.0 : (v - from) / (to - from);
}

double GridValueConstraint::Measure(const Vec3d& position, const ConstraintUse&) const {
  double v = ValueAt(position);
  if (mComparison >= kEqual && mComparison <= kBetween) v = Compare(v) ? 1.0 : 0.0;
  if (!mBends || !mBend || mBend->knots.empty()) return v;
  return mBend->Evaluate(PlaceOnCurve(v));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
