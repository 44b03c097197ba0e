#include "fluids/constraints/quadrics_constraint.h"

#include <algorithm>
#include <cmath>

#include "fluids/constraints/limited_example.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& QuadricsConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300156,
      .type = "constraint_quadratic",
      .label = "CS::Falloff",
      .className = "QuadricsConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose =
          "lets others work in a ball, box, ring or cylinder, fading from its middle outwards",
      .example = example::Limited(
          R"({ "type": "constraint_quadratic", "name": "where", "position": [0, 90, 0], "parameters": { "shape": "ball", "radius": 40 } })"),
      .rows = Parameters,
      .make = MakeNode<QuadricsConstraint>,
  };
  return kind;
}

const ParameterTable& QuadricsConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      LongRow(kShapeRow, "shape", kBall, "",
              "the shape about the node's place in which others work: most in its middle, not at "
              "all at its surface")
          .Choices({{kBall, "ball"},
                    {kEllipsoid, "ellipsoid"},
                    {kBox, "box"},
                    {kTorus, "torus"},
                    {kCylinder, "cylinder"}})
          .To(&QuadricsConstraint::mShape),
      VectorRow(
          1001, "radii", {50, 20, 50}, "host",
          "half of its size along each axis; of a torus, which lies about y, the first is its "
          "radius and the second that of its tube")
          .OnlyWith(kShapeRow, {kEllipsoid, kBox, kTorus, kCylinder})
          .To(&QuadricsConstraint::mRadii),
      RealRow(1002, "radius", 20, "host", "how far the ball reaches")
          .OnlyWith(kShapeRow, {kBall})
          .To(&QuadricsConstraint::mRadius),
  });
  return table;
}

bool QuadricsConstraint::Open() {
  const bool isBall = mShape <= kBall || mShape > kCylinder;
  const Vec3d radii = isBall ? Vec3d{mRadius, mRadius, mRadius} : mRadii;
  if (!(radii.x > 0 && radii.y > 0 && (radii.z > 0 || mShape == kTorus)))
    return Deactivate(isBall ? "its 'radius' isn't above 0" : "its 'radii' aren't all above 0");
  mInverse = Vec3d{1, 1, 1} / radii;
  const Vec3d scale = GetDomain().worldToSim;
  Matrix node = Node()->GlobalMatrix();
  node.offset = node.offset * scale;
  node.v1 = node.v1 * scale;
  node.v2 = node.v2 * scale;
  node.v3 = node.v3 * scale;
  mToNode = Inverse(node);
  return true;
}

double QuadricsConstraint::Measure(const Vec3d& position, const ConstraintUse&) const {
  const Vec3d p = mToNode * position, q = p * mInverse;
  const Vec3d part{std::abs(q.x), std::abs(q.y), std::abs(q.z)};
  const double round = std::hypot(q.x, q.z);
  double m = 0;
  switch (mShape) {
    case kEllipsoid: m = 1 - std::sqrt(Dot(q, q)); break;
    case kBox: m = 1 - std::max({part.x, part.y, part.z}); break;
    case kTorus: {
      const double off = std::hypot(p.x, p.z) - 1 / mInverse.x;
      m = 1 - std::hypot(p.y, off) * mInverse.y;
      break;
    }
    case kCylinder: m = std::min(1 - part.y, 1 - round * round); break;
    default: return 1 - std::sqrt(Dot(q, q));
  }
  return std::clamp(m, 0.0, 1.0);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
