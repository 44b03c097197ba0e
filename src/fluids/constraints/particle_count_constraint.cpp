#include "fluids/constraints/particle_count_constraint.h"

#include <algorithm>
#include <limits>

#include "fluids/constraints/limited_example.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ParticleCountConstraint::Kind() {
  static const NodeKind kind = {
      .id = 1300091,
      .type = "constraint_particlecount",
      .label = "CS::Particle Count",
      .className = "ParticleCountConstraint",
      .typeId = kTypeId,
      .list = kListAuxiliary,
      .categories = kCategoryConstraint,
      .menu = {"Constraints"},
      .purpose = "lets others work where many particles are, or, turned round, where there are few",
      .example =
          {{example::kBall},
           {example::kSmoke, example::kBallMesh, example::kBallVolume, example::kRate,
            example::kPair,
            R"({ "type": "particlegroup", "name": "seeds" }, { "type": "particlemesh_emission_setting", "name": "seeding" })",
            R"({ "type": "particlemeshemitter", "name": "seeder", "parameters": { "source": "ball mesh", "group": "seeds", "settings": "seeding", "kind": "passive" } })",
            R"({ "type": "particle_advection", "name": "fall", "parameters": { "group": "seeds", "kind": "passive", "motion": "ballistic" } })",
            R"({ "type": "constraint_particlecount", "name": "where", "parameters": { "group": "seeds", "kind": "passive", "radius": 3 } })",
            example::kLimitedEmitter}},
      .rows = Parameters,
      .make = MakeNode<ParticleCountConstraint>,
  };
  return kind;
}

const ParameterTable& ParticleCountConstraint::Parameters() {
  static const ParameterTable table = WithRange({
      LinkRow(1000, "group", "the particles that are counted", {ParticleGroup::kNodeType})
          .To(&ParticleCountConstraint::mGroup)
          .Required(),
      RealRow(1001, "radius", 1.0, "cells", "how far about a point particles count")
          .AtLeast(0)
          .To(&ParticleCountConstraint::mRadiusCells),
      LongRow(1003, "kind", kLiquid, "", "which particles of the group count")
          .Choices(ParticleKindChoices())
          .To(&ParticleCountConstraint::mKind),
      LongRow(kLeastRow, "least", 0, "particles", "so many, or fewer, count as 0")
          .To(&ParticleCountConstraint::mLeast),
      LongRow(kMostRow, "most", 5, "particles", "so many count as 1")
          .To(&ParticleCountConstraint::mMost),
      BoolRow(1006, "ramp", true, "counts up from 0 to 1; else all more than 'least' is 1")
          .To(&ParticleCountConstraint::mRamp),
      LongRow(kOverflowRow, "overflow", kStayAtMost, "", "what more particles than 'most' count as")
          .Choices({{kGoOn, "go_on"}, {kStayAtMost, "most"}, {kBackToLeast, "least"}})
          .To(&ParticleCountConstraint::mOverflow),
  });
  return table;
}

bool ParticleCountConstraint::Open() {
  mRadius = mRadiusCells * GetDomain().cellSize;
  constexpr i32 kAll = std::numeric_limits<i32>::max();
  mLimit = mOverflow == kGoOn || mMost == kAll ? kAll : std::max(mMost + 1, 0);
  if (!mGroup) return Deactivate("it has no group; name one under 'group'");
  return IsParticleKind(mKind) || Deactivate("there is no such kind of particles");
}

/// Particles may have been born since the stage began.
bool ParticleCountConstraint::Fetch() {
  mGroup->BuildTree(mKind, mScene->mThreadCount);
  return true;
}

double ParticleCountConstraint::Measure(const Vec3d& position, const ConstraintUse&) const {
  i32 n = mGroup->CountNeighbours(mKind, position, mRadius, mLimit);
  if (n > mMost && mOverflow == kStayAtMost) n = mMost;
  if (n > mMost && mOverflow == kBackToLeast) n = mLeast;
  if (n <= mLeast) return 0;
  return mRamp && mMost > mLeast ? (double{1} * n - mLeast) / (double{1} * mMost - mLeast) : 1.0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
