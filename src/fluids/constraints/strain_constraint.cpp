#include "fluids/constraints/strain_constraint.h"

#include <cmath>

#include "fluids/constraints/limited_example.h"
#include "fluids/fields/channel_kinds.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& StrainConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300147,
      .type = "constraint_strain",
      .label = "CS::Strain",
      .className = "StrainConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose = "lets others work where a flow stretches or shears",
      .example = example::Limited(
          R"({ "type": "constraint_strain", "name": "where", "parameters": { "flow": "gas", "mode": "shear", "input_high": 0.2 } })",
          {example::kCarryingGas}),
      .rows = Parameters,
      .make = MakeNode<StrainConstraint>,
  };
  return kind;
}

const ParameterTable& StrainConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      LinkRow(1000, "flow", "the flow that is looked at: a solver's, or a field of vectors")
          .AcceptsAny(kVectorChannels)
          .AcceptsAny(kSolvers)
          .To(&StrainConstraint::mVelocity)
          .Required(),
      RealRow(1002, "scale", 1.0, "none", "kept with the node; nothing reads it").Kept(),
      LongRow(
          1003, "mode", kMean, "",
          "what counts: how much all directions together are stretched, a third of it; how "
          "much the flow is deformed apart from that; or one entry of the strain; in 1/s times the "
          "squared size of a cell over the length of the step, so that it grows with substeps")
          .Choices({{kMean, "mean"},
                    {kShear, "shear"},
                    {kXX, "xx"},
                    {kYY, "yy"},
                    {kZZ, "zz"},
                    {kXY, "xy"},
                    {kXZ, "xz"},
                    {kYZ, "yz"}})
          .To(&StrainConstraint::mMode),
      BoolRow(1004, "absolute", true, "squeezing counts as stretching does")
          .To(&StrainConstraint::mAbsolute),
  });
  return table;
}

bool StrainConstraint::Fetch() {
  if (mVelocity.IsEmpty()) return Deactivate("it has no flow; name one under 'flow'");
  if (!(mTime->stepDuration > 0)) return Deactivate(kNoStepReason);
  if (!mVelocity.Open()) return Deactivate("its flow has no grid");
  const double h = mVelocity.CellSize();
  mScale = h * h / mTime->stepDuration;
  return true;
}

double StrainConstraint::Strain(const Vec3d& p, i32 i, i32 j) const {
  if (i == j) return mScale * mVelocity.Slope(p, i, i);
  return mScale * 0.5 * (mVelocity.Slope(p, i, j) + mVelocity.Slope(p, j, i));
}

double StrainConstraint::StrainBy(const Vec3d& p) const {
  switch (mMode) {
    case kMean: return (Strain(p, 0, 0) + Strain(p, 1, 1) + Strain(p, 2, 2)) / 3;
    case kShear: {
      const double xx = Strain(p, 0, 0), yy = Strain(p, 1, 1), zz = Strain(p, 2, 2);
      const double xy = Strain(p, 0, 1), xz = Strain(p, 0, 2), yz = Strain(p, 1, 2);
      const double mean = (xx + yy + zz) / 3;
      const auto square = [](double v) { return v * v; };
      const double diagonal = square(xx - mean) + square(yy - mean) + square(zz - mean);
      return std::sqrt((diagonal + 2 * (square(xy) + square(xz) + square(yz))) / 2);
    }
    case kXX: return Strain(p, 0, 0);
    case kYY: return Strain(p, 1, 1);
    case kZZ: return Strain(p, 2, 2);
    case kXY: return Strain(p, 0, 1);
    case kXZ: return Strain(p, 0, 2);
    case kYZ: return Strain(p, 1, 2);
    default: return 0;
  }
}

double StrainConstraint::Measure(const Vec3d& position, const ConstraintUse&) const {
  if (!mVelocity.Holds(position)) return 0;
  const double m = StrainBy(position);
  return mAbsolute ? std::abs(m) : m;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
