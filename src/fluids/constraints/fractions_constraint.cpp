#include "fluids/constraints/fractions_constraint.h"

#include "fluids/constraints/limited_example.h"
#include "fluids/fields/channel_kinds.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& FractionsConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300149,
      .type = "constraint_fractions",
      .label = "CS::Obstacle Fractions",
      .className = "FractionsConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose = "lets others work in the open, or, turned round, at and in obstacles",
      .example = example::Limited(
          R"({ "type": "constraint_fractions", "name": "where", "parameters": { "solver": "gas" } })",
          {example::kCarryingGas}),
      .rows = Parameters,
      .make = MakeNode<FractionsConstraint>,
  };
  return kind;
}

const ParameterTable& FractionsConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      LinkRow(1000, "solver", "whose cells are looked at: how much of each is open")
          .AcceptsAny(kSolvers)
          .To(&FractionsConstraint::mSolver)
          .Required(),
  });
  return table;
}

bool FractionsConstraint::Fetch() {
  mOpen = nullptr;
  if (!mSolver) return Deactivate("it has no solver; name one under 'solver'");
  const Grid_VolumeFractions& fractions = mSolver->GetFlow().mFractions;
  if (fractions.HasField(0, 0)) mOpen = fractions.GetRead(0, 0);
  return (mOpen && mOpen->mData) || Deactivate("its solver has no cells");
}

double FractionsConstraint::Measure(const Vec3d& position, const ConstraintUse&) const {
  return SampleLinear(*mOpen, mOpen->ToSamples(position));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
