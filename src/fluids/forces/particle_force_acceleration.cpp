#include "fluids/forces/particle_force_acceleration.h"

#include "fluids/emission/alignment_vector.h"
#include "framework/dead_link.h"
#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ParticleForce_Acceleration::Kind() {
  static const NodeKind kind = {
      .id = 1300055,
      .type = "pforce_acceleration",
      .label = "PF::Acceleration",
      .className = "ParticleForce_Acceleration",
      .typeId = 110,
      .list = kListForces,
      .categories = kCategoryParticle,
      .menu = {"Particles/Forces"},
      .purpose = "pulls particles one way, or each its own: gravity, wind, a pull to a centre",
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "spark rate" })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "source": "ball mesh", "settings": "spark rate", "kind": "passive" } })",
            R"({ "type": "pforce_acceleration", "name": "down", "parameters": { "strength": -9.81, "direction": [0, 1, 0] } })",
            R"({ "type": "particle_forces", "name": "pull", "parameters": { "groups": [{ "node": "sparks", "kinds": ["passive"] }], "forces": ["down"] } })",
            R"({ "type": "particle_advection", "name": "fly", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleForce_Acceleration>,
  };
  return kind;
}

const ParameterTable& ParticleForce_Acceleration::Parameters() {
  static const ParameterTable table = {
      LinkRow(kAlignmentRow, "alignment",
              "pulls each particle its own way instead, such as away from a centre",
              {AlignmentVector3D::Kind().id})
          .RestsWhereDead()
          .To(&ParticleForce_Acceleration::mAlignment),
      RealRow(kStrengthRow, "strength", -9.81, "m/s^2",
              "how hard they are pulled along the direction; below 0 against it")
          .To(&ParticleForce_Acceleration::mStrength),
      VectorRow(kDirectionRow, "direction", {0, 1, 0}, "none",
                "which way, in the node's own axes; its length doesn't count")
          .OnlyWithout(kAlignmentRow)
          .To(&ParticleForce_Acceleration::mGiven),
      LinkRow(kDurationRow, "duration", "pulls only inside this time window", {Duration::Kind().id})
          .To(&ParticleForce_Acceleration::mDuration),
  };
  return table;
}

bool ParticleForce_Acceleration::ReadParameters() {
  if (!ForceOf::ReadParameters()) return false;
  Matrix placement;
  mInterface.GetMatrix(placement);
  mDirection = Normalised(RotationOf(placement).Rotate(mGiven));
  return true;
}

void ParticleForce_Acceleration::Open() {
  if (RestsByDeadLink(*this)) return;
  if (!mAlignment && mDirection == Vec3d{})
    return void(Deactivate("its 'direction' has no length"));
  if (mAlignment) mAlignment->SetWorkerCount(kShares);
  ForceOf::Open();
}

void ParticleForce_Acceleration::Push(ForceSample& sample, double s) const {
  Vec3d direction = mDirection;
  if (mAlignment) {
    mAlignment->GetDirection(direction, sample.position, sample.worker);
    direction = Normalised(direction);
  }
  sample.force += direction * (s * mStrength);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
