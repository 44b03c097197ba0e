#include "fluids/forces/force_gravity.h"

#include "fluids/emission/alignment_vector.h"
#include "fluids/emission/emission_settings.h"
#include "framework/dead_link.h"
#include "framework/node_kind.h"
#include "framework/scene.h"
#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& Force_Gravity::Kind() {
  static const NodeKind kind = {
      .id = 1300014,
      .type = "force_gravity",
      .label = "GF::External",
      .className = "Force_Gravity",
      .typeId = kTypeGravity,
      .list = kListForces,
      .categories = kCategoryGrid,
      .priority = 20,
      .menu = {"Grids/Forces"},
      .purpose = "pushes all of a fluid: wind, a draught, gravity; and rigid bodies, by a node for that",
      .example =
          {{},
           {R"({ "type": "force_gravity", "name": "wind", "parameters": { "acceleration": [2, 0, 0] } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150],)",
            R"(  "parameters": { "wall_low_x": "open", "wall_high_x": "open", "forces": ["wind"] } })"}},
      .rows = Parameters,
      .make = MakeNode<Force_Gravity>,
  };
  return kind;
}

const ParameterTable& Force_Gravity::Parameters() {
  static const ParameterTable table = {
      VectorRow(kAccelerationRow, "acceleration", {0, -9.81, 0}, "m/s^2",
                "how hard and which way the gas is pushed, in the node's own axes")
          .OnlyWithout(kAlignmentRow)
          .To(&Force_Gravity::mAcceleration),
      LinkRow(kAlignmentRow, "alignment",
              "pushes each place its own way instead, such as away from a centre",
              {AlignmentVector3D::Kind().id})
          .RestsWhereDead()
          .To(&Force_Gravity::mAlignment),
      RealRow(kStrengthRow, "strength", 1.0, "none",
              "a handle on the whole push: 2 is twice as hard, 0 is calm")
          .To(&Force_Gravity::mStrength),
      LinkRow(1003, "settings", "emission settings whose time window switches the push on and off",
              {GridEmissionSettings::Kind().id})
          .To(&Force_Gravity::mSettings),
  };
  return table;
}

bool Force_Gravity::ReadParameters() {
  if (!ForceOf::ReadParameters()) return false;
  Matrix placement;
  mInterface.GetMatrix(placement);
  mDirection = RotationOf(placement).Rotate(mAcceleration);
  return true;
}

void Force_Gravity::Open() {
  if (RestsByDeadLink(*this)) return;
  // Links of settings may be fetched after those of forces: their window is taken as late as this.
  mDuration = mSettings ? mSettings->mDuration : nullptr;
  if (mAlignment) mAlignment->SetWorkerCount(kShares);
  ForceOf::Open();
}

Vec3d Force_Gravity::DirectionAt(const ForceSample& sample) const {
  if (!mAlignment) return mDirection;
  Vec3d direction = mDirection;
  mAlignment->GetDirection(direction, sample.position, sample.worker);
  return Normalised(direction);
}

template class ForceOf<Force_Gravity>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
