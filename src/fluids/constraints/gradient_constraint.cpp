#include "fluids/constraints/gradient_constraint.h"

#include <algorithm>

#include "fluids/constraints/limited_example.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& GradientConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300022,
      .type = "constraint_gradient",
      .label = "CS::Gradient",
      .className = "GradientConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose =
          "lets others work along a ramp in space: upwards from the floor, or round a middle",
      .example = example::Limited(
          R"({ "type": "constraint_gradient", "name": "where", "position": [0, 20, 0], "parameters": { "mode": "y", "length": 80, "gradient": [[0, [1, 1, 1]], [1, [0, 0, 0]]] } })"),
      .rows = Parameters,
      .make = MakeNode<GradientConstraint>,
  };
  return kind;
}

const ParameterTable& GradientConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      GradientRow(kGradientRow, "gradient",
                  "what is measured from the middle (0) to 'length' away from it (1): white lets "
                  "pass, black holds back; red counts")
          .To(&GradientConstraint::mGradient),
      LongRow(1001, "mode", kAxisY, "",
              "along which axis of the object the ramp runs, to both sides, or by the distance")
          .Choices({{kAxisX, "x"}, {kAxisY, "y"}, {kAxisZ, "z"}, {kDistance, "distance"}})
          .To(&GradientConstraint::mMode),
      LinkRow(1002, "object",
              "where the ramp begins and how it is turned; the node itself without "
              "one",
              {kMeshObject, kSplineObject, kPointsObject, kLightObject, kCameraObject})
          .To(&GradientConstraint::mObject),
      RealRow(1003, "length", 100, "host", "how far away from the middle the ramp ends")
          .AtLeast(0)
          .To(&GradientConstraint::mLength),
      BoolRow(1004, "one_sided", false,
              "the side of the axis that is below 0 counts as the beginning of the ramp")
          .To(&GradientConstraint::mOneSided),
      LinkRow(1005, "alignment", "takes the lengths of these directions in place of the distance",
              {AlignmentVector3D::Kind().id})
          .To(&GradientConstraint::mDirections),
      BoolRow(1007, "squared", false,
              "the ramp runs with the square of the distance: slow at first, then fast")
          .To(&GradientConstraint::mSquared),
  });
  return table;
}

void GradientConstraint::Relink() {
  MeasuredConstraint::Relink();
  if (!mDirections) return;
  mDirections->ReadParameters();
  mDirections->ResolveLinks();
  mDirections->AfterLinks();
}

bool GradientConstraint::Open() {
  if (!mGradient || mGradient->knots.empty())
    return Deactivate("it has no 'gradient', and lets everything pass");
  const Vec3d scale = GetDomain().worldToSim;
  Matrix frame = mObject ? mObject->GlobalMatrix() : Node()->GlobalMatrix();
  frame.offset = frame.offset * scale;
  mToObject = Inverse(frame);
  const double length = mLength * scale.x;
  mReach = mSquared ? length * length : length;
  if (mDirections) mDirections->SetWorkerCount(kShares);
  return true;
}

double GradientConstraint::Measure(const Vec3d& position, const ConstraintUse& use) const {
  const auto size = [&](double distanceSquared) {
    return mSquared ? distanceSquared : std::sqrt(distanceSquared);
  };
  double v = 0;
  if (mDirections) {
    Vec3d direction;
    mDirections->GetDirection(direction, position, use.worker);
    v = size(Dot(direction, direction));
  } else {
    const Vec3d l = mToObject * position;
    if (mMode == kDistance) {
      v = size(Dot(l, l));
    } else {
      const double c = l[mMode];
      v = mOneSided && c < 0 ? 0.0 : size(c * c);
    }
  }
  const double t = v == 0 ? 0.0 : std::min(v / mReach, 1.0);
  return mGradient->Evaluate(t).x;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
