#include "fluids/emission/particle_emission_settings.h"

#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ParticleEmissionSettings::Kind() {
  static const NodeKind kind = {
      .id = 1300026,
      .type = "particlemesh_emission_setting",
      .label = "Settings::Particle Emission",
      .className = "ParticleEmissionSettings",
      .typeId = 11,
      .list = kListSettings,
      .categories = kCategoryParticle,
      .menu = {"Particles/Emitters"},
      .purpose = "how many particles appear, when, and how they vary",
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "spark rate", "parameters": { "amount": 200 } })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "source": "ball mesh", "settings": "spark rate", "kind": "passive" } })",
            R"({ "type": "particle_advection", "name": "fly", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleEmissionSettings>,
  };
  return kind;
}

const ParameterTable& ParticleEmissionSettings::Parameters() {
  static const ParameterTable table = {
      LongRow(kAmountRow, "amount", 1000, "1/s",
              "how many particles an emitter on a mesh makes; in a volume its density decides")
          .Missing(i32{1})
          .AtLeast(0)
          .OnlyWithout(kRateRow)
          .To(&ParticleEmissionSettings::mAmount),
      LinkRow(kRateRow, "rate",
              "a value node whose whole_rate takes the place of amount, shared by several sources",
              {EmissionRate::Kind().id})
          .To(&iEmissionSettings::mRate),
      BoolRow(1000, "per_step", false, "makes the whole amount in every step, whatever its length")
          .To(&ParticleEmissionSettings::mPerStep),
      LinkRow(1002, "duration",
              "a burst instead of a steady source: when it runs, and how strongly",
              {Duration::Kind().id})
          .To(&ParticleEmissionSettings::mDuration),
      LinkRow(1005, "alignment",
              "the axis about which new particles of vorticity whirl; without it straight up",
              {AlignmentVector3D::Kind().id})
          .To(&ParticleEmissionSettings::mAlignment),
      RealRow(1006, "jitter", 1.0, "none",
              "how far particles in a volume stand off a lattice, in quarters of a cell; half a "
              "step of the lattice at most")
          .Missing(0.0)
          .AtLeast(0)
          .To(&ParticleEmissionSettings::mJitter),
      RealRow(1010, "age_spread", 0.0, "none",
              "how much earlier some particles die: at 0.5 ages are drawn from half to all of the "
              "property age")
          .Range(0, 1)
          .To(&ParticleEmissionSettings::mAgeSpread),
  };
  return table;
}

void ParticleEmissionSettings::CheckDirty() {
  iEmissionSettings::CheckDirty();
  if (!IsDirty() && (IsDirtyNow(mDuration) || IsDirtyNow(mAlignment))) MarkDirty(false);
}

bool ParticleEmissionSettings::IsOpen(double time, double step, double& weight) const {
  weight = 1;
  return !mDuration || !mDuration->Has(FLAG_ENABLED) || mDuration->MeanWeight(time, step, weight);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
