#include "fluids/constraints/rotation_constraint.h"

#include <cmath>

#include "fluids/constraints/limited_example.h"
#include "fluids/fields/channel_kinds.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& RotationConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300148,
      .type = "constraint_rotation",
      .label = "CS::Flow Rotation",
      .className = "RotationConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose = "lets others work where a flow turns: in whirls, or, turned round, between them",
      .example = example::Limited(
          R"({ "type": "constraint_rotation", "name": "where", "parameters": { "flow": "gas", "input_high": 5, "output_low": 0.1 } })",
          {example::kCarryingGas}),
      .rows = Parameters,
      .make = MakeNode<RotationConstraint>,
  };
  return kind;
}

const ParameterTable& RotationConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      LinkRow(1000, "flow",
              "the flow that is looked at: a solver's, or a field of vectors; nothing passes "
              "outside of it")
          .AcceptsAny(kVectorChannels)
          .AcceptsAny(kSolvers)
          .To(&RotationConstraint::mVelocity)
          .Required(),
      LongRow(1002, "mode", kCurl, "",
              "how fast it turns, or how far it runs on along the axis of that: helicity")
          .Choices({{kCurl, "curl"}, {kHelicity, "helicity"}})
          .To(&RotationConstraint::mMode),
      BoolRow(1003, "absolute", true, "helicity to the left counts as that to the right does")
          .OnlyWith(1002, {kHelicity})
          .To(&RotationConstraint::mAbsolute),
  });
  return table;
}

bool RotationConstraint::Fetch() {
  if (mVelocity.IsEmpty()) return Deactivate("it has no flow; name one under 'flow'");
  return mVelocity.Open() || Deactivate("its flow has no grid");
}

std::optional<double> RotationConstraint::Measure(const Vec3d& position,
                                                  const ConstraintUse&) const {
  if (!mVelocity.Holds(position)) return std::nullopt;
  const auto slope = [&](i32 i, i32 a) { return mVelocity.Slope(position, i, a); };
  const Vec3d curl{slope(2, 1) - slope(1, 2), slope(0, 2) - slope(2, 0), slope(1, 0) - slope(0, 1)};
  const double m =
      mMode == kHelicity ? Dot(curl, mVelocity.At(position)) : std::sqrt(Dot(curl, curl));
  return mAbsolute ? std::abs(m) : m;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
