#include "fluids/constraints/particle_distance_constraint.h"

#include <algorithm>

#include "fluids/constraints/limited_example.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ParticleDistanceConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300090,
      .type = "constraint_particledistance",
      .label = "CS::Distance To Particle",
      .className = "ParticleDistanceConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose = "lets others work away from particles, or, turned round, close to them",
      .example =
          {{example::kBall},
           {example::kSmoke, example::kBallMesh, example::kBallVolume, example::kRate,
            example::kPair,
            R"({ "type": "particlegroup", "name": "seeds" }, { "type": "particlemesh_emission_setting", "name": "seeding" })",
            R"({ "type": "particlemeshemitter", "name": "seeder", "parameters": { "source": "ball mesh", "group": "seeds", "settings": "seeding", "kind": "passive" } })",
            R"({ "type": "particle_advection", "name": "fall", "parameters": { "group": "seeds", "kind": "passive", "motion": "ballistic" } })",
            R"({ "type": "constraint_particledistance", "name": "where", "parameters": { "group": "seeds", "kind": "passive", "radius": 2, "invert": true } })",
            example::kLimitedEmitter}},
      .rows = Parameters,
      .make = MakeNode<ParticleDistanceConstraint>,
  };
  return kind;
}

const ParameterTable& ParticleDistanceConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      LinkRow(1000, "group", "the particles that the distance is measured from",
              {ParticleGroup::kNodeType})
          .To(&ParticleDistanceConstraint::mGroup)
          .Required(),
      RealRow(1001, "radius", 10, "cells",
              "the distance that counts as 1; where no particle is nearer it is more")
          .AtLeast(0)
          .To(&ParticleDistanceConstraint::mRadiusCells),
      LongRow(1003, "kind", kLiquid, "", "which particles of the group count")
          .Choices(ParticleKindChoices())
          .To(&ParticleDistanceConstraint::mKind),
  });
  return table;
}

bool ParticleDistanceConstraint::Open() {
  mRadius = mRadiusCells * GetDomain().cellSize;
  if (!mGroup) return Deactivate("it has no group; name one under 'group'");
  if (!(mRadius > 0)) return Deactivate("its 'radius' is 0");
  return IsParticleKind(mKind) || Deactivate("there is no such kind of particles");
}

/// Particles may have been born since the stage began.
bool ParticleDistanceConstraint::Fetch() {
  mGroup->BuildTree(mKind, mScene->mThreadCount);
  return true;
}

double ParticleDistanceConstraint::Measure(const Vec3d& position, const ConstraintUse&) const {
  const PointTree* tree = mGroup->Tree(mKind);
  const TreeHit hit = tree ? tree->FindNearest(position, mRadius) : TreeHit{};
  const double beyond = mRadius + 1;
  return (hit.index < 0 ? beyond : std::sqrt(hit.distanceSquared)) / mRadius;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
