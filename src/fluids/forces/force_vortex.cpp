#include "fluids/forces/force_vortex.h"

#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& Force_Vortex::Kind() {
  static const NodeKind kind = {
      .id = 1300115,
      .type = "force_vortex",
      .label = "DF::Vortex",
      .className = "Force_Vortex",
      .typeId = 39,
      .list = kListForces,
      .categories = kCategoryGrid | kCategoryParticle,
      .menu = {"Bodies/Forces", "Grids/Forces", "Particles/Forces"},
      .purpose = "turns fluids and particles about an axis, as a stirred pot or a tornado",
      .example =
          {{},
           {R"({ "type": "force_vortex", "name": "stir", "rotation": [90, 0, 0], "parameters": { "strength": 40 } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["stir"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Force_Vortex>,
  };
  return kind;
}

const ParameterTable& Force_Vortex::Parameters() {
  static const ParameterTable table = {
      RealRow(kStrengthRow, "strength", 1.0, "cells/s^2",
              "how hard it turns at a hundred host units from the node's z axis; twice as far out "
              "twice as hard; a negative number turns the other way")
          .To(&Force_Vortex::mStrength),
      LinkRow(1001, "duration", "pushes only inside this time window", {Duration::Kind().id})
          .To(&Force_Vortex::mDuration),
  };
  return table;
}

bool Force_Vortex::PrepareForce() {
  if (mStrength == 0) return Deactivate(kNoStrengthReason);
  Matrix placement;
  mInterface.GetMatrix(placement);
  mInverse = Inverse(placement);
  mTurn = RotationOf(placement);
  mPush = mStrength * GetDomain().cellSize * kPerHostUnit;
  return true;
}

void Force_Vortex::AddField(const FieldPoints& points) const {
  for (std::size_t i = 0; i < points.positions.size(); ++i) {
    const Vec3d local = mInverse * ToHost(points.positions[i]);
    const Vec3d tangent{-local.y, local.x, 0};
    points.changes[i] += mTurn.Rotate(tangent) * (mPush * points.weights[i]);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
